#include "opengl/opengl_image_interop.h"

#include <GL/gl.h>

#include "opengl/opengl_image_interop_p.h"
#include "opengl/opengl_image_quad.h"

namespace kova {
namespace {

GLenum formatOf(int channels) {
    switch (channels) {
        case 4:
            return GL_RGBA;
        case 3:
            return GL_RGB;
        default:
            return GL_LUMINANCE;
    }
}

void specifyTexture(const OpenGLImageInteropVars& vars, const void* data) {
    const GLenum format = formatOf(vars.channels);
    glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(format), vars.width, vars.height, 0, format,
                 GL_UNSIGNED_BYTE, data);
}

}  // namespace

OpenGLImageInterop::OpenGLImageInterop() : vars_(std::make_unique<OpenGLImageInteropVars>()) {}

OpenGLImageInterop::~OpenGLImageInterop() = default;

bool OpenGLImageInterop::init(int width, int height, int elementSize, int channels) {
    vars_->width = width;
    vars_->height = height;
    vars_->element_size = elementSize;
    vars_->channels = channels;
    vars_->byte_size = width * height * elementSize * channels;
    glGenTextures(1, &vars_->texture);
    glBindTexture(GL_TEXTURE_2D, vars_->texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    specifyTexture(*vars_, nullptr);
    glBindTexture(GL_TEXTURE_2D, 0);
    vars_->initialised = true;
    return true;
}

void OpenGLImageInterop::uninit() {
    if (!vars_->initialised)
        return;
    glBindTexture(GL_TEXTURE_2D, vars_->texture);
    glDeleteTextures(1, &vars_->texture);
    vars_->texture = 0;
    glBindTexture(GL_TEXTURE_2D, 0);
    vars_->initialised = false;
    vars_->width = 0;
    vars_->height = 0;
    vars_->byte_size = 0;
    vars_->element_size = 0;
    vars_->channels = 0;
}

void OpenGLImageInterop::draw(void* data, int viewWidth, int viewHeight) {
    if (!data)
        return;
    glEnable(GL_TEXTURE_2D);
    glBindTexture(GL_TEXTURE_2D, vars_->texture);
    specifyTexture(*vars_, data);
    const QuadExtents extents = fitQuad(vars_->width, vars_->height, viewWidth, viewHeight);
    vars_->horizontal_extent = extents.horizontal;
    vars_->vertical_extent = extents.vertical;
    drawTexturedQuad(extents);
}

}  // namespace kova
