#pragma once

#include "camera/matching/sgm_definition.h"

namespace kova::camera::sgm {

/// Narrows the search of every cell to what a search at half the size has found in and around it
/// (`margin` more on both sides). A cell with more than half of its pixels without a
/// disparity there keeps all levels; what lies left of the first disparity of a row is not counted,
/// since the right eye does not see it.
///
/// @param half    disparities of the pair at half the size [1/16 px of that size]
/// @param margin  [px of the full size]
/// @param search  of the full size; its ranges are replaced
void narrowSearch(const ImageView<const std::uint16_t>& half, int width, int height, int margin,
                  Search& search);

constexpr int kNarrowNeighbourhood = 4;  ///< pixels around a cell that count [px of half the size]

}  // namespace kova::camera::sgm
