#pragma once

#include <cstdint>
#include <vector>

#include "camera/detection/stixel_judge.h"

namespace kova::bench {

/// Candidates whose truth is known, for a fit.
struct LabelledFeatures {
    std::vector<camera::StixelFeatures> features;
    std::vector<std::uint8_t> truth;  ///< 1: a thing
    std::vector<double> weight;       ///< 0: not looked at
};

struct BoostOptions {
    int trees = 100;
    int features = camera::kStixelFeatures;  ///< only the first so many
    double rate = 0.2;                       ///< part of a tree's best answer that is taken
    double ridge = 10;                       ///< on every answer, as weight of samples
};

/// Gradient boosting of the logistic loss (Friedman, "Greedy function approximation: a gradient
/// boosting machine", Annals of Statistics 2001) with Newton's steps (Chen and Guestrin, "XGBoost",
/// 2016), on features that are sorted into 48 bins of equal weight; what is not known is below all
/// of them. The result does not depend on the number of threads.
camera::StixelTrees boostTrees(const LabelledFeatures& samples, const BoostOptions& options);

}  // namespace kova::bench
