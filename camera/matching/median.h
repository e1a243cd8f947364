#pragma once

#include "camera/base/disparity.h"
#include "camera/base/image.h"

namespace kova::camera {

/// Rows [begin, end) of the 3x3 median of a disparity map. A neighbour that is outside of the map
/// or no disparity counts as the centre; what is no disparity stays as it is.
void medianRows(const ImageView<const std::uint16_t>& in, const ImageView<std::uint16_t>& out,
                int begin, int end);

/// One pixel of it, computed the short way; tests compare medianRows() with it.
std::uint16_t medianReference(const ImageView<const std::uint16_t>& in, int x, int y);

}  // namespace kova::camera
