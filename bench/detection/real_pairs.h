#pragma once

#include <vector>

#include "bench/depth/ground_truth.h"
#include "bench/detection/scoring.h"
#include "camera/matching/matcher.h"

namespace kova::bench {

/// How detection from computed disparity agrees with detection from the true one. A column counts
/// as near where the truth puts its nearest obstacle within 15 m.
struct PairAgreement {
    int pairs = 0;
    Rate state;                            ///< columns with the same state
    Rate occupied;                         ///< columns occupied by truth that are occupied
    Rate invented;                         ///< columns not occupied by truth that are occupied
    Rate distance, near_distance;          ///< occupied in both: the same distance, max(1 px, 5 %)
    Rate farther, near_farther;            ///< occupied in both: farther than that
    Rate map;                              ///< pixels labelled in both, ground or obstacle, alike
    Rate map_both;                         ///< pixels labelled by truth that are labelled
    std::vector<double> distance_percent;  ///< difference, without sign, where both are occupied
    Rate ground;                           ///< pairs in which both found a ground

    void add(const PairAgreement& other);
};

/// Detects twice in one pair, without confirmation over frames: from the matcher's disparity and
/// from the true one, both only at the pixels that have a true one.
/// @param geometry  of the pair
camera::Result<PairAgreement> comparePair(const TruePair& pair,
                                          const camera::RectifiedGeometry& geometry,
                                          camera::WorkMode mode);

}  // namespace kova::bench
