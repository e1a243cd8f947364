#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <vector>

namespace kova::camera {

/// What is known of one column's candidate for a stixel. Each is scaled so that a step means about
/// the same everywhere; NaN is not known.
enum StixelFeature {
    // Of the candidate itself.
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
    kMeasuredPart,       ///< part of its cells that were measured, by weight
    kEdge,               ///< 1: the edge of a raised surface
    kAboveStep,          ///< its disparity less that of what is seen close above it [px]
    kAboveRise,          ///< height over the ground of what is seen close above it [mm]
    kAboveRisePart,      ///< the same by its own height: 1 where it goes on behind its rim
    kFarAboveRise,       ///< the height, of what is seen a few cells farther up
    kBelowStep,          ///< disparity of what is seen close below it less its own [px]
    kBelowRise,          ///< height over the ground of what is seen close below it [mm]
    kBelowRisePart,      ///< the same by its own height
    kLineSlope,          ///< of a line through the disparities around it, by that of the ground
    kLineMisfit,         ///< deviation of the disparities around it from that line [px]
    // Of the two sides, the one is "behind" where what is seen a column or more aside is farther.
    kBehindStep,      ///< its disparity less that of what is seen behind it [px]
    kBehindContrast,  ///< ln(1 + step of the grey levels to the next column there, by noise)
    kBehindLogRatio,  ///< ln of the residuals' ratio with what is seen behind it to as it is
    kBesideStep,      ///< the same three for the other side
    kBesideContrast,
    kBesideLogRatio,
    kOwnFeatures,

    // Of those beside it, by the probabilities that they have by themselves. A group are candidates
    // of neighbouring columns at about one distance, see StixelSupport.
    kOwnOdds = kOwnFeatures,  ///< its own odds by itself [nat]
    kNearest,                 ///< sum of its group's probabilities within one column
    kNear,                    ///< the same, within three
    kAround,                  ///< the same, within eight
    kGroupSum,                ///< the same, all columns
    kLesserSide,              ///< greatest probability of its group to the left or to the right of
    kGreaterSide,             ///< it, within three columns: of the weaker side, of the other
    kRival,                   ///< greatest of the same rows at other distances, within one column
    kSameColumn,              ///< greatest at its distance above or below it
    kOtherGroups,             ///< sum of those of other groups at its distance within three columns
    kDisparityStep,           ///< to the mean of its group within three columns [px]
    kFootStep,                ///< the same for the lower end, by disparity [rows/px]
    kTopStep,                 ///< the same for the upper end
    kHidden,                  ///< columns by which something nearer on the right that is rather a
                              ///< thing hides what is far away here from the right eye
    kStixelFeatures,
};
using StixelFeatures = std::array<float, kStixelFeatures>;
constexpr StixelFeatures unknownFeatures() {
    StixelFeatures features{};
    for (float& value : features) value = std::numeric_limits<float>::quiet_NaN();
    return features;
}

/// A decision tree that asks the same question everywhere on one level: whether a feature lies
/// above a limit. What is not known does not.
struct StixelTree {
    static constexpr int kLevels = 4;
    std::array<std::uint8_t, kLevels> feature;
    std::array<float, kLevels> limit;
    std::array<std::int16_t, 1 << kLevels> value;  ///< by the answers, the first counts most [mnat]

    int operator()(const StixelFeatures& features) const {
        int answers = 0;
        for (int level = 0; level < kLevels; ++level)
            answers = 2 * answers + (features[feature[level]] > limit[level] ? 1 : 0);
        return value[answers];
    }
};

/// The logarithm of the odds that a candidate is a thing: a sum of trees, in whole 1/1000 so that
/// it is the same on every machine. Gradient boosting (Friedman, "Greedy function approximation",
/// Annals of Statistics 2001) with trees that ask one question on each level (Kohavi, "Bottom-up
/// induction of oblivious read-once decision graphs", 1994).
struct StixelTrees {
    int bias = 0;  ///< [mnat]
    std::vector<StixelTree> trees;

    /// [nat]
    float operator()(const StixelFeatures& features) const;

    /// The same for some candidates at a time, which compilers turn into vectors.
    static constexpr int kAtOnce = 8;
    using Features = std::array<std::array<float, kAtOnce>, kStixelFeatures>;
    std::array<float, kAtOnce> operator()(const Features& features) const;
};

/// Judges a candidate by itself, then together with those beside it. Fitted by `kova bench
/// detection --fit` to candidates in simulated scenes whose truth is known.
struct StixelJudge {
    StixelTrees alone;     ///< by its own features
    StixelTrees together;  ///< by all features
};
/// For depth from pictures of full and of half the size: the latter smears borders twice as far.
extern const StixelJudge kFullStixelJudge;
extern const StixelJudge kHalfStixelJudge;

}  // namespace kova::camera
