#include "camera/detection/stixel_support.h"

#include <algorithm>
#include <cmath>

#include "camera/detection/union_find.h"

namespace kova::camera {

namespace {

/// Texture that tells a surface from noise (change over 4 px by that over 1 px) is worth this much
/// confidence, in all.
constexpr float kTextureWorth = 0.1f;
constexpr float kClearTexture = 0.5f;  ///< over 1, which is noise alone
/// Quality from which on evidence begins to count and counts in full.
constexpr float kNoQuality = 0.6f;
constexpr float kFullQuality = 0.8f;
constexpr float kMostEvidence = 40;  ///< that one column can bring [nat]

/// Heights over the ground [mm]: what begins higher is not near the ground, what reaches higher is
/// seen before sky or far things, what hangs higher is over everybody's head.
constexpr float kNearGroundMm = 500;
constexpr float kTallMm = 2500;
constexpr float kOverheadMm = 1500;

/// A column that brings less than this to its group is not seen well enough itself [nat].
constexpr float kMinShare = 3;
/// Ground that is measured a little too near, beside and below nearer things, goes on as ground
/// does: an upright surface must fit better than that, or be of high quality. Clearly parallel ones
/// have passed the limit on slopes: they are short, or seen from below.
constexpr float kClearlyUpright = 10;
constexpr float kClearlyParallel = -1;
constexpr float kQualityWhateverTheSlant = 0.8f;

/// Farther things are not known to a fifth of their distance [px].
constexpr float kFarPx = 3;

/// What a candidate must reach: in a group, and in one that is too narrow to be a witness.
struct Demand {
    int wide;  ///< columns from which on a group counts as one
    float quality, evidence;
    float narrow_quality, narrow_evidence;
};
constexpr float kNever = 2;  // no quality reaches it
constexpr Demand kStanding = {2, 0.6f, 25, 0.75f, 20};
constexpr Demand kTall = {2, 0.75f, 20, 0.8f, 30};
constexpr Demand kFar = {3, 0.85f, 40, kNever, 0};
constexpr Demand kHanging = {3, 0.72f, 30, 0.85f, 60};
constexpr Demand kOverhead = {3, 0.85f, 40, 0.95f, 60};
constexpr Demand kEdge = {3, 0.65f, 25, kNever, 0};

const Demand& demandOn(const StixelCandidate& one) {
    if (one.edge)
        return kEdge;
    // Without a ground nothing is known about heights.
    if (one.hangs || one.stixel.low_mm > kNearGroundMm)
        return one.stixel.low_mm > kOverheadMm ? kOverhead : kHanging;
    if (one.stixel.disparity < kFarPx)
        return kFar;
    return one.stixel.high_mm > kTallMm ? kTall : kStanding;
}

float qualityOf(const StixelCandidate& one) {
    if (one.stixel.too_near)
        return 1;
    const float texture = std::clamp((one.texture - 1) / kClearTexture, 0.0f, 1.0f);
    return one.stixel.confidence + kTextureWorth * texture;
}

/// What a candidate brings to its group.
float shareOf(const StixelCandidate& one) {
    const float part = (qualityOf(one) - kNoQuality) / (kFullQuality - kNoQuality);
    return std::clamp(part, 0.0f, 1.0f) * std::clamp(one.evidence, 0.0f, kMostEvidence);
}

bool standsUpright(const StixelCandidate& one) {
    return one.upright >= kClearlyUpright || one.upright <= kClearlyParallel ||
           qualityOf(one) >= kQualityWhateverTheSlant;
}

bool belongTogether(const Stixel& one, const Stixel& other) {
    const float apart = std::fabs(other.disparity - one.disparity);
    return apart < std::max(1.0f, 0.05f * std::max(one.disparity, other.disparity)) &&
           other.y_top < one.y_bottom && other.y_bottom > one.y_top;
}

}  // namespace

void StixelSupport::run(const std::vector<int>& first, std::vector<StixelCandidate>& candidates) {
    const int columns = static_cast<int>(first.size()) - 1;
    const int count = static_cast<int>(candidates.size());
    parent_.resize(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) parent_[i] = i;
    for (int column = 0; column + 1 < columns; ++column)
        for (int i = first[column]; i < first[column + 1]; ++i)
            for (int k = first[column + 1]; k < first[column + 2]; ++k)
                if (belongTogether(candidates[i].stixel, candidates[k].stixel))
                    parent_[root(parent_, k)] = root(parent_, i);

    groups_.assign(static_cast<std::size_t>(count), Group());
    for (int i = 0; i < count; ++i) {
        const StixelCandidate& one = candidates[i];
        Group& group = groups_[root(parent_, i)];
        group.evidence += shareOf(one);
        group.columns += group.last_column != one.stixel.column;
        group.last_column = one.stixel.column;
    }
    for (int i = 0; i < count; ++i) {
        StixelCandidate& one = candidates[i];
        const Group& group = groups_[root(parent_, i)];
        const Demand& demand = demandOn(one);
        const bool wide = group.columns >= demand.wide;
        one.kept = qualityOf(one) >= (wide ? demand.quality : demand.narrow_quality) &&
                   group.evidence >= (wide ? demand.evidence : demand.narrow_evidence);
        if (&demand == &kStanding)
            one.kept = one.kept && shareOf(one) >= kMinShare && standsUpright(one);
    }
}

}  // namespace kova::camera
