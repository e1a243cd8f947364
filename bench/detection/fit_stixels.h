#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "camera/detection/stixel_support.h"

namespace kova::bench {

/// A candidate for a stixel in a frame whose truth is known.
struct StixelSample {
    camera::StixelCandidate candidate;
    int frame = 0;  ///< number of the frame
    std::uint32_t seed = 0;
    bool fast = false;
    bool is_true = false;
    double weight = 1;
};

/// Fits the judge: trees for the candidates by themselves, then trees for all features. What those
/// beside a candidate say is taken from fits to the other seeds (stacking; Wolpert, 1992), since a
/// fit is surer of what it was made of than of anything else.
/// @param samples  ordered by frame, and by column within one
camera::StixelJudge fitStixelJudge(const std::vector<StixelSample>& samples);

/// How a judge fitted to half of the seeds parts the candidates of the other half.
std::string stixelFitReport(const std::vector<StixelSample>& samples);

/// As it stands in camera/detection/stixel_judge_table.cpp.
std::string stixelJudgeSource(const camera::StixelJudge& judge);

}  // namespace kova::bench
