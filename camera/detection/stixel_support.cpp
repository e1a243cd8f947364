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

// What an edge needs, and what is nearer than the search, in a group of neighbouring columns.
constexpr int kEdgeColumns = 3;
constexpr float kEdgeQuality = 0.65f;
constexpr int kTooNearColumns = 2;
constexpr float kGroupEvidence = 25;  ///< [nat]

/// From here on a candidate is kept: 80 %.
constexpr float kMinOdds = 1.39f;
/// From here on also without another one beside it: 90 %. Half of the false ones stand alone, few
/// things do.
constexpr float kMinLoneOdds = 2.2f;

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

float probabilityOf(float odds) {
    return 1 / (1 + std::exp(-odds));
}

/// The judge knows neither edges, which are a line, nor what has no disparity.
bool isJudged(const StixelCandidate& one) {
    return !one.edge && !one.stixel.too_near;
}

bool belongTogether(const Stixel& one, const Stixel& other) {
    const float apart = std::fabs(other.disparity - one.disparity);
    return apart < std::max(1.0f, 0.05f * std::max(one.disparity, other.disparity)) &&
           other.y_top < one.y_bottom && other.y_bottom > one.y_top;
}

/// Sum of the probabilities of a candidate's group in the columns beside it.
float nearProbability(const std::vector<int>& first, const std::vector<StixelCandidate>& candidates,
                      int index, int column) {
    const int columns = static_cast<int>(first.size()) - 1;
    const int begin = std::max(0, column - kNearColumns);
    const int end = std::min(columns, column + kNearColumns + 1);
    float sum = 0;
    for (int k = first[begin]; k < first[end]; ++k)
        if (candidates[k].group == candidates[index].group &&
            (k < first[column] || k >= first[column + 1]))
            sum += candidates[k].own_probability;
    return sum;
}

/// Whether another one of its group is kept in the columns beside it.
bool hasCompany(const std::vector<int>& first, const std::vector<StixelCandidate>& candidates,
                const StixelCandidate& one) {
    const int columns = static_cast<int>(first.size()) - 1;
    const int column = one.stixel.column;
    const int end = std::min(columns, column + kNearColumns + 1);
    for (int k = first[std::max(0, column - kNearColumns)]; k < first[end]; ++k)
        if (candidates[k].kept && candidates[k].group == one.group &&
            candidates[k].stixel.column != column)
            return true;
    return false;
}

}  // namespace

void StixelSupport::run(const StixelJudge& judge, const std::vector<int>& first,
                        std::vector<StixelCandidate>& candidates) {
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
        StixelCandidate& one = candidates[i];
        one.group = root(parent_, i);
        one.own_probability = isJudged(one) ? probabilityOf(judge.ownOdds(one.features)) : 0.0f;
        Group& group = groups_[one.group];
        group.evidence += shareOf(one);
        group.columns += group.last_column != one.stixel.column;
        group.last_column = one.stixel.column;
    }
    for (int column = 0; column < columns; ++column) {
        for (int i = first[column]; i < first[column + 1]; ++i) {
            StixelCandidate& one = candidates[i];
            if (!isJudged(one)) {
                const Group& group = groups_[one.group];
                one.kept = group.columns >= (one.edge ? kEdgeColumns : kTooNearColumns) &&
                           qualityOf(one) >= kEdgeQuality && group.evidence >= kGroupEvidence;
                continue;
            }
            const float near = nearProbability(first, candidates, i, column);
            const float odds = judge.odds(one.features, near);
            one.kept = odds >= kMinOdds;
            one.stixel.confidence = probabilityOf(odds);
        }
    }
    lone_.clear();
    for (int i = 0; i < count; ++i) {
        const StixelCandidate& one = candidates[i];
        if (one.kept && isJudged(one) && one.stixel.confidence < probabilityOf(kMinLoneOdds) &&
            !hasCompany(first, candidates, one))
            lone_.push_back(i);
    }
    for (const int i : lone_) candidates[i].kept = false;
}

}  // namespace kova::camera
