#include "camera/detection/stixel_support.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "camera/base/parallel.h"
#include "camera/detection/union_find.h"

namespace kova::camera {

namespace {

/// What is nearer than the search needs in a group of neighbouring columns. Something so near fills
/// much of the picture; a saturated patch at its edge may seem too near as well.
constexpr int kTooNearColumns = 2;
constexpr float kTooNearEvidence = 150;  ///< [nat]

/// From here on a candidate is kept: 87 %.
constexpr float kMinOdds = 1.9f;

// Columns beside a candidate that have a say.
constexpr int kNearColumns = 3;
constexpr int kAroundColumns = 8;
constexpr float kRatherAThing = 0.5f;  ///< probability
/// Less beside it has no mean.
constexpr float kLeastWeight = 0.05f;

float probabilityOf(float odds) {
    return 1 / (1 + std::exp(-odds));
}

bool isAtOneDistance(const Stixel& one, const Stixel& other) {
    const float apart = std::fabs(other.disparity - one.disparity);
    return apart < std::max(1.0f, 0.05f * std::max(one.disparity, other.disparity));
}

bool overlaps(const Stixel& one, const Stixel& other) {
    return other.y_top < one.y_bottom && other.y_bottom > one.y_top;
}

bool belongTogether(const Stixel& one, const Stixel& other) {
    return isAtOneDistance(one, other) && overlaps(one, other);
}

/// Ranges of candidates on every core.
template <typename Body>
void forRanges(int count, const Body& body) {
    constexpr int kPerTask = 8 * StixelTrees::kAtOnce;
    parallelFor((count + kPerTask - 1) / kPerTask,
                [&](int task) { body(task * kPerTask, std::min(count, (task + 1) * kPerTask)); });
}

/// Calls `set` with every candidate of a range and its odds by `trees`.
template <typename Set>
void judgeRange(const StixelTrees& trees, std::vector<StixelCandidate>& candidates, int begin,
                int end, const Set& set) {
    StixelTrees::Features features{};
    for (int at = begin; at < end; at += StixelTrees::kAtOnce) {
        const int count = std::min(StixelTrees::kAtOnce, end - at);
        for (int i = 0; i < count; ++i)
            for (int f = 0; f < kStixelFeatures; ++f)
                features[f][i] = candidates[at + i].features[f];
        const auto odds = trees(features);
        for (int i = 0; i < count; ++i) set(candidates[at + i], odds[i]);
    }
}

/// Sums over what stands beside one candidate.
class Neighbourhood {
public:
    explicit Neighbourhood(const StixelCandidate& one) : one_(one) {}

    void add(const StixelCandidate& other) {
        const float p = other.own_probability;
        const Stixel &here = one_.stixel, &there = other.stixel;
        const int apart = std::abs(there.column - here.column);
        const bool same_distance = isAtOneDistance(here, there);
        if (apart == 0 && same_distance)
            same_column_ = std::max(same_column_, p);
        if (apart <= 1 && !same_distance && overlaps(here, there))
            rival_ = std::max(rival_, p);
        if (p > kRatherAThing && there.x_begin >= here.x_end && !same_distance &&
            there.disparity > here.disparity && overlaps(here, there))
            hidden_ =
                std::max(hidden_, there.disparity - static_cast<float>(there.x_begin - here.x_end));
        if (apart == 0)
            return;
        if (other.group != one_.group) {
            if (same_distance && apart <= kNearColumns)
                other_groups_ += p;
            return;
        }
        around_ += p;
        if (apart > kNearColumns)
            return;
        near_ += p;
        nearest_ += apart == 1 ? p : 0.0f;
        float& side = there.column < here.column ? left_ : right_;
        side = std::max(side, p);
        disparity_ += p * there.disparity;
        foot_ += p * static_cast<float>(there.y_bottom);
        top_ += p * static_cast<float>(there.y_top);
    }

    void describe(StixelFeatures& features) const {
        const Stixel& here = one_.stixel;
        features[kNearest] = nearest_;
        features[kNear] = near_;
        features[kAround] = around_;
        features[kLesserSide] = std::min(left_, right_);
        features[kGreaterSide] = std::max(left_, right_);
        features[kRival] = rival_;
        features[kSameColumn] = same_column_;
        features[kOtherGroups] = other_groups_;
        features[kHidden] = hidden_ / static_cast<float>(here.x_end - here.x_begin);
        features[kDisparityStep] = features[kFootStep] = features[kTopStep] =
            std::numeric_limits<float>::quiet_NaN();
        if (near_ < kLeastWeight)
            return;
        features[kDisparityStep] = std::fabs(disparity_ / near_ - here.disparity);
        features[kFootStep] = (foot_ / near_ - static_cast<float>(here.y_bottom)) / here.disparity;
        features[kTopStep] = (top_ / near_ - static_cast<float>(here.y_top)) / here.disparity;
    }

private:
    const StixelCandidate& one_;
    float nearest_ = 0, near_ = 0, around_ = 0, left_ = 0, right_ = 0;
    float rival_ = 0, same_column_ = 0, other_groups_ = 0, hidden_ = 0;
    float disparity_ = 0, foot_ = 0, top_ = 0;
};

}  // namespace

void StixelNeighbours::describe(const std::vector<int>& first,
                                std::vector<StixelCandidate>& candidates) {
    group_sums_.clear();
    for (const StixelCandidate& one : candidates) {
        const auto group = static_cast<std::size_t>(one.group);
        if (group_sums_.size() <= group)
            group_sums_.resize(group + 1);
        group_sums_[group] += one.own_probability;
    }
    const int columns = static_cast<int>(first.size()) - 1;
    forRanges(static_cast<int>(candidates.size()), [&](int from, int to) {
        for (int i = from; i < to; ++i) {
            StixelCandidate& one = candidates[i];
            if (!isJudged(one))
                continue;
            const int column = one.stixel.column;
            const int end = first[std::min(columns, column + kAroundColumns + 1)];
            Neighbourhood neighbours(one);
            for (int k = first[std::max(0, column - kAroundColumns)]; k < end; ++k)
                if (k != i)
                    neighbours.add(candidates[k]);
            neighbours.describe(one.features);
            one.features[kGroupSum] = group_sums_[one.group];
        }
    });
}

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

    forRanges(count, [&](int begin, int end) {
        judgeRange(judge.alone, candidates, begin, end, [](StixelCandidate& one, float odds) {
            one.features[kOwnOdds] = odds;
            one.own_probability = isJudged(one) ? probabilityOf(odds) : 0.0f;
        });
    });
    groups_.assign(static_cast<std::size_t>(count), Group());
    for (int i = 0; i < count; ++i) {
        StixelCandidate& one = candidates[i];
        one.group = root(parent_, i);
        Group& group = groups_[one.group];
        group.evidence += one.stixel.too_near ? std::max(0.0f, one.evidence) : 0.0f;
        group.columns += group.last_column != one.stixel.column;
        group.last_column = one.stixel.column;
    }
    neighbours_.describe(first, candidates);
    forRanges(count, [&](int begin, int end) {
        judgeRange(judge.together, candidates, begin, end, [&](StixelCandidate& one, float odds) {
            const Group& group = groups_[one.group];
            if (!isJudged(one)) {
                one.kept = one.wanted && group.columns >= kTooNearColumns &&
                           group.evidence >= kTooNearEvidence;
                return;
            }
            one.kept = one.wanted && odds >= kMinOdds;
            one.stixel.confidence = probabilityOf(odds);
        });
    });
}

}  // namespace kova::camera
