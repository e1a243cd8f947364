#pragma once

#include <string>
#include <vector>

#include "bench/depth/ground_truth.h"
#include "camera/matching/confidence.h"

namespace kova::bench {

/// Measures the table of confidences on pairs, as the matcher's documentation says.
/// @param half  of the search at half the size
camera::ConfidenceTable fitConfidence(const std::vector<TruePair>& pairs, bool half);

}  // namespace kova::bench
