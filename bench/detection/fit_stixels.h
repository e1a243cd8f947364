#pragma once

#include <string>
#include <vector>

#include "camera/detection/stixel_judge.h"

namespace kova::bench {

/// A candidate for a stixel in a frame whose truth is known.
struct StixelSample {
    camera::StixelFeatures features;
    int frame = 0;  ///< number of the frame
    int group = 0;  ///< of neighbouring candidates, within the frame
    int column = 0;
    std::uint32_t seed = 0;
    bool fast = false;
    bool is_true = false;
};

/// Fits the judge: curves by penalised logistic regression (iteratively reweighted least squares;
/// Green and Silverman, 1994), those that must rise by pooling adjacent violators, then the curves
/// of the neighbours' probabilities on top of them.
camera::StixelJudge fitStixelJudge(const std::vector<StixelSample>& samples);

/// How a judge fitted to half of the seeds parts the candidates of the other half.
std::string stixelFitReport(const std::vector<StixelSample>& samples);

/// As it stands in camera/detection/stixel_judge_table.cpp.
std::string stixelJudgeSource(const camera::StixelJudge& judge);

}  // namespace kova::bench
