#include "opengl/opengl_pointcloud_interop.h"

#include <GL/glew.h>

#include <cstring>
#include <iostream>

#include "opengl/opengl_pointcloud_interop_p.h"
#include "sdk/utils.h"

namespace kova {
namespace {

const void* bufferOffset(std::int32_t bytes) {
    return reinterpret_cast<const void*>(static_cast<std::intptr_t>(bytes));
}

// Without a context, and with drivers older than buffers, GLEW finds no entry points.
bool haveBuffers() {
    return glGenBuffers && glBindBuffer && glBufferData && glBufferSubData && glDeleteBuffers;
}

void copyBytes(void* destination, const void* source, std::int32_t bytes) {
    if (destination && bytes > 0)
        std::memcpy(destination, source, static_cast<std::size_t>(bytes));
}

}  // namespace

void OpenGLPointCloudInteropVars::draw_pointclouds(float) {
    // Without a buffer the offsets below would be taken for addresses.
    if (vbo == 0)
        return;
    glBindBuffer(GL_ARRAY_BUFFER, vbo);
    glBufferSubData(GL_ARRAY_BUFFER, 0, colour_bytes, colour_host);
    glBufferSubData(GL_ARRAY_BUFFER, colour_bytes, xyz_bytes, xyz_host);
    glEnableClientState(GL_VERTEX_ARRAY);
    glEnableClientState(GL_COLOR_ARRAY);
    glColorPointer(colour_channels, GL_UNSIGNED_BYTE, 0, bufferOffset(0));
    if (coord_size == 4)
        glVertexPointer(3, GL_FLOAT, 0, bufferOffset(colour_bytes));
    else if (coord_size == 1)
        glVertexPointer(3, GL_UNSIGNED_BYTE, 0, bufferOffset(colour_bytes));
    glDrawArrays(GL_POINTS, 0, width * height);
    glDisableClientState(GL_VERTEX_ARRAY);
    glDisableClientState(GL_COLOR_ARRAY);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

OpenGLPointCloudInterop::OpenGLPointCloudInterop()
    : vars_(std::make_unique<OpenGLPointCloudInteropVars>()) {
    glewGetString(GLEW_VERSION);
    const GLenum code = glewInit();
    if (code != GLEW_OK)
        std::cout << "ERROR: glewInit failed with error: " << glewGetErrorString(code) << std::endl;
}

OpenGLPointCloudInterop::~OpenGLPointCloudInterop() {
    uninit();
}

int OpenGLPointCloudInterop::init(int width, int height, int colourBytesPerChannel, int coordBytes,
                                  int colourChannels) {
    vars_->width = width;
    vars_->height = height;
    vars_->coord_size = coordBytes;
    vars_->colour_channels = colourChannels;
    vars_->colour_bytes = width * height * colourBytesPerChannel * colourChannels;
    vars_->xyz_bytes = width * height * coordBytes * 3;

    if (haveBuffers()) {
        glGenBuffers(1, &vars_->vbo);
        glBindBuffer(GL_ARRAY_BUFFER, vars_->vbo);
        const auto bytes = static_cast<GLsizeiptr>(vars_->colour_bytes) + vars_->xyz_bytes;
        glBufferData(GL_ARRAY_BUFFER, bytes, nullptr, GL_DYNAMIC_DRAW);
        glBindBuffer(GL_ARRAY_BUFFER, 0);
    }

    vars_->host_buffers.deallocate_all();
    vars_->host_buffers.clear_vector();
    vars_->host_buffers.add_pointer(reinterpret_cast<void**>(&vars_->colour_host), width, height,
                                    colourChannels, colourBytesPerChannel);
    vars_->host_buffers.add_pointer(reinterpret_cast<void**>(&vars_->xyz_host), width, height, 3,
                                    coordBytes);
    vars_->host_buffers.allocate_all();
    vars_->initialised = true;
    return 1;
}

int OpenGLPointCloudInterop::uninit() {
    if (!vars_->initialised)
        return 1;
    if (haveBuffers()) {
        // 1 is no target: GL ignores the call with an error that nobody reads. Kept on purpose.
        glBindBuffer(1, vars_->vbo);
        glDeleteBuffers(1, &vars_->vbo);
    }
    vars_->host_buffers.deallocate_all();
    vars_->host_buffers.clear_vector();
    vars_->vbo = 0;
    vars_->width = 0;
    vars_->height = 0;
    vars_->colour_bytes = 0;
    vars_->xyz_bytes = 0;
    vars_->coord_size = 0;
    vars_->colour_channels = 0;
    vars_->initialised = false;
    return 1;
}

void OpenGLPointCloudInterop::draw(void* colours, void* xyz, float pointSize) {
    if (!colours || !xyz)
        return;
    copyBytes(vars_->colour_host, colours, vars_->colour_bytes);
    copyBytes(vars_->xyz_host, xyz, vars_->xyz_bytes);
    vars_->draw_pointclouds(pointSize);
}

void OpenGLPointCloudInterop::draw(void* xyzc, float pointSize) {
    if (!xyzc)
        return;
    const auto* points = static_cast<const float*>(xyzc);
    if (vars_->colour_channels == 3)
        Utils::getChannel_xyzabgr_xyz_rgb(points, vars_->xyz_host, vars_->colour_host, vars_->width,
                                          vars_->height);
    else if (vars_->colour_channels == 4)
        Utils::getChannel_xyzbgra_xyz_rgba(points, vars_->xyz_host, vars_->colour_host,
                                           vars_->width, vars_->height);
    vars_->draw_pointclouds(pointSize);
}

}  // namespace kova
