#include "opengl/opengl_image_interop_cuda.h"

#include <GL/gl.h>

#include "opengl/opengl_image_interop_cuda_p.h"
#include "opengl/opengl_image_quad.h"

#if defined(KOVA_WITH_CUDA)
#include <cuda_gl_interop.h>
#include <cuda_runtime_api.h>
#endif

namespace kova {
namespace {

GLenum formatOf(int channels) {
    return channels == 4 ? GL_RGBA : GL_LUMINANCE;
}

void specifyTexture(const OpenGLImageInteropCUDAVars& vars, const void* data) {
    const GLenum format = formatOf(vars.channels);
    glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(format), vars.width, vars.height, 0, format,
                 GL_UNSIGNED_BYTE, data);
}

#if defined(KOVA_WITH_CUDA)

bool deviceAnswers() {
    int count = 0;
    return cudaGetDeviceCount(&count) == cudaSuccess && count > 0;
}

bool registerTexture(OpenGLImageInteropCUDAVars& vars) {
    return cudaGraphicsGLRegisterImage(&vars.resource, vars.texture, GL_TEXTURE_2D,
                                       cudaGraphicsRegisterFlagsWriteDiscard) == cudaSuccess;
}

bool unregisterTexture(OpenGLImageInteropCUDAVars& vars) {
    return cudaGraphicsUnregisterResource(vars.resource) == cudaSuccess;
}

// Failures are not looked at: at worst the texture keeps an older picture.
void copyOnDevice(OpenGLImageInteropCUDAVars& vars, const void* data) {
    cudaArray_t array = nullptr;
    cudaGraphicsMapResources(1, &vars.resource, nullptr);
    cudaGraphicsSubResourceGetMappedArray(&array, vars.resource, 0, 0);
    const auto bytes = static_cast<std::size_t>(vars.byte_size);
#pragma GCC diagnostic push
    // Deprecated, but it takes the picture as one run of bytes, which is what the buffer holds.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    cudaMemcpyToArray(array, 0, 0, data, bytes, cudaMemcpyDeviceToDevice);
#pragma GCC diagnostic pop
    cudaGraphicsUnmapResources(1, &vars.resource, nullptr);
}

#else

bool deviceAnswers() {
    return false;
}
bool registerTexture(OpenGLImageInteropCUDAVars&) {
    return true;
}
bool unregisterTexture(OpenGLImageInteropCUDAVars&) {
    return true;
}
void copyOnDevice(OpenGLImageInteropCUDAVars&, const void*) {}

#endif

}  // namespace

OpenGLImageInteropCUDA::OpenGLImageInteropCUDA()
    : vars_(std::make_unique<OpenGLImageInteropCUDAVars>()) {}

OpenGLImageInteropCUDA::~OpenGLImageInteropCUDA() {
    uninit();
}

bool OpenGLImageInteropCUDA::init(int width, int height, int elementSize, int channels) {
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
    // Asked once: the question goes through the driver, and draw() is called with every picture.
    vars_->on_device = deviceAnswers();
    const bool registered = vars_->on_device ? registerTexture(*vars_) : true;
    glEnable(GL_ALPHA_TEST);
    vars_->initialised = true;
    return registered;
}

bool OpenGLImageInteropCUDA::uninit() {
    if (!vars_->initialised)
        return true;
    const bool unregistered = vars_->on_device ? unregisterTexture(*vars_) : true;
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
    return unregistered;
}

void OpenGLImageInteropCUDA::draw(void* data, int viewWidth, int viewHeight) {
    if (vars_->on_device)
        copyOnDevice(*vars_, data);
    glEnable(GL_TEXTURE_2D);
    glBindTexture(GL_TEXTURE_2D, vars_->texture);
    if (!vars_->on_device)
        specifyTexture(*vars_, data);
    const QuadExtents extents = fitQuad(vars_->width, vars_->height, viewWidth, viewHeight);
    vars_->horizontal_extent = extents.horizontal;
    vars_->vertical_extent = extents.vertical;
    drawTexturedQuad(extents);
}

}  // namespace kova
