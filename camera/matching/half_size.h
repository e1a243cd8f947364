#pragma once

#include "camera/base/image.h"

namespace kova::camera {

/// The size of a picture of half the size: every second pixel, the last one doubled if it is alone.
constexpr int halfSize(int pixels) {
    return (pixels + 1) / 2;
}

/// Rows [begin, end) of the picture of half the size; each pixel is the mean of four, rounded up
/// from one half.
/// @param half  of the size halfSize(width) x halfSize(height)
void halveRows(const ImageView<const std::uint8_t>& picture, const ImageView<std::uint8_t>& half,
               int begin, int end);

}  // namespace kova::camera
