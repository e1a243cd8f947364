#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "camera/base/image.h"
#include "camera/base/status.h"

namespace kova::camera {

/// A JPEG picture as its planes: brightness for matching, colour only where it is asked for.
/// Decoded with libjpeg-turbo. Keeps its buffers.
class JpegPlanes {
public:
    JpegPlanes();
    ~JpegPlanes();
    JpegPlanes(const JpegPlanes&) = delete;
    JpegPlanes& operator=(const JpegPlanes&) = delete;

    /// Decodes a picture that must be width x height px. Start and end marker must be there (zeros
    /// behind the end marker are padding of the camera); data that ends early or cannot be decoded
    /// is refused, foreign bytes between segments are not.
    /// @return kNoNewFrame, in words
    Status decode(const std::uint8_t* data, std::size_t bytes, int width, int height);

    /// Brightness, rows brightnessStride() bytes apart.
    const std::uint8_t* brightness() const { return planes_[0].data(); }
    std::ptrdiff_t brightnessStride() const { return strides_[0]; }
    bool hasColour() const { return has_colour_; }

    /// Colour of the part of w x h px at (x, y), for a picture that has colour.
    Status colour(int x, int y, int w, int h, Image<Rgba>& out);

private:
    void* decoder_ = nullptr;
    int sampling_ = 0;
    bool has_colour_ = false;
    std::array<std::vector<std::uint8_t>, 3> planes_;
    std::array<int, 3> strides_{};
    Image<Rgba> wider_;
};

}  // namespace kova::camera
