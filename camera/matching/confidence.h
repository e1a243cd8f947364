#pragma once

#include <cstdint>

#include "camera/base/image.h"
#include "camera/matching/sgm_definition.h"

namespace kova::camera {

/// Rows [begin, end) of the confidence of a disparity map: three cheap measures (survey of Poggi et
/// al., arXiv 2101.00431), added with fixed weights and mapped by a table to the probability that
/// the disparity is right to within 1 px:
///  - agreement: how many of the 24 neighbours in 5x5 have a disparity that differs by less than
///    1 px;
///  - margin: by how much the second best sum exceeds the best one;
///  - cost: the best sum itself.
/// Weights and table are fitted on the tuning pairs of the benchmarks (`kova bench depth
/// --fit-confidence`).
///
/// @param disparity   after all checks [1/16 px]
/// @param winners     of the same pixels, before them
/// @param confidence  in 1 / kConfidenceScale; 0 where there is no disparity
void rateRows(const ImageView<const std::uint16_t>& disparity, const sgm::Winners& winners,
              const ImageView<std::uint8_t>& confidence, int begin, int end);

/// What is added with weights: 0 to 255, larger is surer.
int confidenceScore(int agreement, int margin, int cost);
/// Confidence of each score, 1 to kConfidenceScale, ascending.
extern const std::uint8_t kConfidenceOfScore[256];

/// One pixel, computed the short way; tests compare rateRows() with it.
std::uint8_t rateReference(const ImageView<const std::uint16_t>& disparity,
                           const sgm::Winners& winners, int x, int y);

/// Neighbours in 5x5 that agree with a disparity.
int agreementAt(const ImageView<const std::uint16_t>& disparity, int x, int y);

}  // namespace kova::camera
