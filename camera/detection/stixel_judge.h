#pragma once

#include <array>
#include <limits>

namespace kova::camera {

/// What is known of one column's candidate for a stixel. Each is scaled so that a step means about
/// the same everywhere; NaN is not known.
enum StixelFeature {
    kLogDisparity,       ///< ln d
    kLogSigma,           ///< ln of the disparity's standard deviation
    kMatchConfidence,    ///< mean of the matcher's
    kEvidence,           ///< of the cells against ground [nat], compressed
    kTexture,            ///< of the segment, at most 3
    kHangs,              ///< 1: nothing is seen below it
    kLogLow,             ///< ln of the lower edge over the ground [mm], 10 and more
    kLogHigh,            ///< ln of the upper edge over the ground [mm], 20 and more
    kUpright,            ///< see StixelCandidate, compressed
    kLogLength,          ///< ln of the rows
    kRightMargin,        ///< px from the left border of what the right eye sees, -20 to 20
    kLogVariance,        ///< ln of (variance of its pixels + 2)
    kLogResidual,        ///< ln of (residual of its pixels + 2)
    kCorrelation,        ///< of its pixels in both pictures
    kGroundLogRatio,     ///< ln of the residuals' ratio if its pixels were ground, to as it is
    kGroundCorrelation,  ///< of its pixels in both pictures if they were ground
    kPeakLogRatio,       ///< ln of the residuals' ratio elsewhere to as it is
    kGroundPart,         ///< part of it that lies under the horizon
    kStixelFeatures,
};
/// Up to here a group's columns count as near [columns].
constexpr int kNearColumns = 3;
using StixelFeatures = std::array<float, kStixelFeatures>;
constexpr StixelFeatures unknownFeatures() {
    StixelFeatures features{};
    for (float& value : features) value = std::numeric_limits<float>::quiet_NaN();
    return features;
}

/// A piecewise linear function, constant beyond its ends.
struct JudgeCurve {
    static constexpr int kKnots = 8;
    std::array<float, kKnots> at;     ///< rising
    std::array<float, kKnots> value;  ///< [nat]
    float operator()(float x) const;
};

/// The logarithm of the odds that a candidate is a thing: a sum of one curve for each feature, an
/// additive logistic model (Hastie and Tibshirani, "Generalized additive models", 1986), and of one
/// for how probable its neighbours are. Fitted by `kova bench detection --fit` to candidates in
/// simulated scenes whose truth is known.
struct StixelJudge {
    float bias;
    std::array<JudgeCurve, kStixelFeatures> own;
    float own_weight;  ///< of the own odds beside the neighbours
    JudgeCurve near;   ///< of the sum of the probabilities of its group within 3 columns

    /// By its own features; what is not known has no say.
    float ownOdds(const StixelFeatures& features) const;
    /// With its neighbours.
    /// @param near_sum  of their probabilities by their own features
    float odds(const StixelFeatures& features, float near_sum) const;
};
/// For depth from pictures of full and of half the size: the latter smears borders twice as far.
extern const StixelJudge kFullStixelJudge;
extern const StixelJudge kHalfStixelJudge;

}  // namespace kova::camera
