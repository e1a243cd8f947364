#pragma once

#include "camera/base/disparity.h"
#include "camera/base/image.h"

namespace kova::camera {

/// Marks rows [begin, end) of a map where a search at a quarter of the size, over twice the range,
/// found something nearer than the full search can see: such a pixel is kTooNearDisparity, whatever
/// the full search took for its match. Only pixels count whose four neighbours are too near as
/// well, so that a single wrong match marks nothing.
///
/// @param quarter        disparities at a quarter of the size [1/16 px of that size]
/// @param max_disparity  of the full search [px]
void markTooNear(const ImageView<const std::uint16_t>& quarter, int max_disparity,
                 DisparityMap& map, int begin, int end);

}  // namespace kova::camera
