#pragma once

#include <array>
#include <cstdint>

#include "camera/base/image.h"
#include "camera/matching/sgm_definition.h"

namespace kova::camera {

/// What a score between 0 and 255 is worth, 1 to kConfidenceScale, ascending.
using ConfidenceTable = std::array<std::uint8_t, 256>;
/// Of searches at full size, and of one at half the size that was scaled up. Measured on the tuning
/// pairs of the benchmarks: the share of pixels of a score that are right to within 1 px, every
/// pair with the same weight, made ascending by pooling adjacent violators (Ayer et al. 1955).
/// `kova bench confidence` prints them.
extern const ConfidenceTable kFullConfidence, kHalfConfidence;

/// Rows [begin, end) of the confidence of a disparity map. Two cheap measures (survey of Poggi et
/// al., arXiv 2101.00431) are added with fixed weights, found by logistic regression on the tuning
/// pairs, and mapped by a table to a probability:
///  - roughness: the sum over the 24 neighbours in 5x5 of how much their disparity differs, at most
///    1 px each; 1 px where there is none;
///  - margin: by how much the second best sum exceeds the best one, at most kMaxMargin.
///
/// @param disparity   after all checks [1/16 px]
/// @param winners     of the same pixels, before them
/// @param confidence  in 1 / kConfidenceScale; 0 where there is no disparity
void rateRows(const ImageView<const std::uint16_t>& disparity, const sgm::Winners& winners,
              const ConfidenceTable& table, const ImageView<std::uint8_t>& confidence, int begin,
              int end);

constexpr int kMaxMargin = 63;
constexpr int kMarginWeight = 11;
constexpr int kMaxRoughness = 24 * kDisparityScale;

/// Both measures with their weights.
constexpr int confidenceScore(int roughness, int margin) {
    const int score =
        (kMarginWeight * (margin < kMaxMargin ? margin : kMaxMargin) + kMaxRoughness - roughness) /
        4;
    return score < 255 ? score : 255;
}

/// One pixel, computed the short way; tests compare rateRows() with it.
std::uint8_t rateReference(const ImageView<const std::uint16_t>& disparity,
                           const sgm::Winners& winners, const ConfidenceTable& table, int x, int y);

}  // namespace kova::camera
