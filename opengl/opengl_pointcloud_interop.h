#pragma once

#include <memory>

namespace kova {

struct OpenGLPointCloudInteropVars;

/// An organised point cloud, one point per pixel, in one vertex buffer: all colours, then all
/// coordinates. Each draw copies a frame from host memory, uploads it and draws it as points.
///
/// Every operation, construction too, wants the context current. GUI thread only; not copied.
class OpenGLPointCloudInterop {
public:
    /// Loads the GL extensions. A failure is one line on standard output and not final: what the
    /// driver offers is used.
    OpenGLPointCloudInterop();
    ~OpenGLPointCloudInterop();
    OpenGLPointCloudInterop(const OpenGLPointCloudInterop&) = delete;
    OpenGLPointCloudInterop& operator=(const OpenGLPointCloudInterop&) = delete;

    /// Creates the buffer and the staging memory; call uninit() first where there is one.
    ///
    /// @param width, height         [points]
    /// @param colourBytesPerChannel 1
    /// @param coordBytes            bytes per coordinate: 4 is 32-bit float, 1 is unsigned byte
    /// @param colourChannels        3 (RGB) or 4 (RGBA)
    /// @return 1
    int init(int width, int height, int colourBytesPerChannel, int coordBytes, int colourChannels);

    /// Releases both. Harmless when not initialised. @return 1
    int uninit();

    /// Draws separate colours and coordinates; nothing if either is null.
    ///
    /// @param colours    width * height * channels bytes
    /// @param xyz        width * height * 3 coordinates
    /// @param pointSize  unused: points have the size that is current
    void draw(void* colours, void* xyz, float pointSize);

    /// Draws interleaved points of four floats (X, Y, Z, packed colour: a, b, g, r with 3 channels,
    /// b, g, r, a with 4); nothing if null. With another number of channels the frame before is
    /// drawn again.
    void draw(void* xyzc, float pointSize);

protected:
    std::unique_ptr<OpenGLPointCloudInteropVars> vars_;
};

}  // namespace kova
