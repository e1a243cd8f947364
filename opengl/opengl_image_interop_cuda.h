#pragma once

#include <memory>

namespace kova {

struct OpenGLImageInteropCUDAVars;

/// The same as OpenGLImageInterop for an image in CUDA device memory, which is copied into the
/// texture on the device.
///
/// Where the program is built without CUDA, or no device answers, device memory is host memory:
/// the pixels are uploaded from there, and every operation succeeds.
class OpenGLImageInteropCUDA {
public:
    OpenGLImageInteropCUDA();
    /// Releases as uninit() does, so the context has to be current if initialised.
    ~OpenGLImageInteropCUDA();
    OpenGLImageInteropCUDA(const OpenGLImageInteropCUDA&) = delete;
    OpenGLImageInteropCUDA& operator=(const OpenGLImageInteropCUDA&) = delete;

    /// Creates the texture and registers it with CUDA; enables the alpha test of the context.
    ///
    /// @param channels  4: RGBA, anything else: grey
    /// @return whether the registration succeeded; the object counts as initialised either way
    bool init(int width, int height, int elementSize, int channels);

    /// @return whether the registration could be taken back; true when not initialised
    bool uninit();

    /// @param data                   device memory of width * height * channels bytes
    /// @param viewWidth, viewHeight  viewport [px], to keep the aspect ratio in; -1 to fill it
    void draw(void* data, int viewWidth, int viewHeight);

protected:
    std::unique_ptr<OpenGLImageInteropCUDAVars> vars_;
};

}  // namespace kova
