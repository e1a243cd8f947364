#pragma once

#include "camera/base/disparity.h"
#include "camera/base/image.h"

namespace kova::camera {

/// Rows [begin, end) of a disparity map of twice the size: disparities doubled and, where a
/// neighbour of the small map differs by at most 1 px of it, interpolated between both. Rows of the
/// large map have room for twice the width of the small one.
void upscaleDisparityRows(const ImageView<const std::uint16_t>& half,
                          const ImageView<std::uint16_t>& full, int begin, int end);

/// One row of it.
/// @param full  holds twice the width of the small map
void upscaleDisparityRow(const ImageView<const std::uint16_t>& half, int y, std::uint16_t* full);

/// The same for a map of bytes, each repeated.
void upscaleByteRows(const ImageView<const std::uint8_t>& half, const ImageView<std::uint8_t>& full,
                     int begin, int end);

}  // namespace kova::camera
