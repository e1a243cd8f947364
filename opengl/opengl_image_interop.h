#pragma once

#include <memory>

namespace kova {

struct OpenGLImageInteropVars;

/// An 8-bit image in host memory, shown as one textured quad in the current OpenGL context, in
/// normalised device coordinates. Its first row is drawn at the top.
///
/// Every operation wants the context current. GUI thread only; not copied.
class OpenGLImageInterop {
public:
    OpenGLImageInterop();
    /// Frees the record only: call uninit() before, while the context is current.
    ~OpenGLImageInterop();
    OpenGLImageInterop(const OpenGLImageInterop&) = delete;
    OpenGLImageInterop& operator=(const OpenGLImageInterop&) = delete;

    /// Creates the texture; call uninit() first where there is one.
    ///
    /// @param width, height  [px]
    /// @param elementSize    bytes per channel; 1
    /// @param channels       4: RGBA, 3: RGB, anything else: grey
    /// @return true
    bool init(int width, int height, int elementSize, int channels);

    /// Releases the texture. Harmless when not initialised.
    void uninit();

    /// Uploads the pixels and draws them.
    ///
    /// @param data                   pixels, rows padded to 4 bytes; null: nothing is done
    /// @param viewWidth, viewHeight  viewport [px], to keep the aspect ratio in; -1 to fill it
    void draw(void* data, int viewWidth, int viewHeight);

protected:
    std::unique_ptr<OpenGLImageInteropVars> vars_;
};

}  // namespace kova
