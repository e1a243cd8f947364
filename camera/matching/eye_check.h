#pragma once

#include <cstdint>

namespace kova::camera {

/// The left-right check of a row, on the left picture's winners alone: of all pixels that claim the
/// same pixel of the right picture the cheapest, and among equals the first, is taken for its
/// partner; the others keep their disparity only if it is like the partner's.
///
/// @param disparity       1/16 px, in and out; what fails becomes kInvalidDisparity
/// @param cost            of each winner
/// @param max_difference  [1/16 px]
/// @param held            working memory of `width` + kClaimsBehind elements
void checkEyes(std::uint16_t* disparity, const std::uint8_t* cost, int width, int max_difference,
               std::int32_t* held);

/// Pixels without a partner claim one of so many elements behind the row: that is cheaper than a
/// branch the processor cannot foresee.
constexpr int kClaimsBehind = 16;

}  // namespace kova::camera
