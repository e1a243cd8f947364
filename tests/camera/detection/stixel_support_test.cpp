#include "camera/detection/stixel_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace kova::camera {
namespace {

/// Between ground that was measured too near and a thing that both pictures agree on.
StixelFeatures featuresBetween(float thing) {
    const auto mix = [&](float ground, float clear) { return ground + thing * (clear - ground); };
    StixelFeatures f = unknownFeatures();
    f[kLogDisparity] = std::log(8.0f);
    f[kLogSigma] = std::log(0.22f);
    f[kMatchConfidence] = mix(0.65f, 0.9f);
    f[kEvidence] = mix(2, 5);
    f[kTexture] = mix(1.1f, 1.8f);
    f[kHangs] = 0;
    f[kLogLow] = std::log(10.0f);
    f[kLogHigh] = std::log(500.0f);
    f[kUpright] = mix(0, 5);
    f[kLogLength] = std::log(40.0f);
    f[kRightMargin] = 20;
    f[kLogVariance] = mix(3.5f, 5);
    f[kLogResidual] = mix(2.8f, 2.2f);
    f[kCorrelation] = mix(0.4f, 0.98f);
    f[kGroundLogRatio] = mix(-0.3f, 2);
    f[kGroundCorrelation] = mix(0.8f, 0.3f);
    f[kPeakLogRatio] = mix(0, 2);
    f[kGroundPart] = 1;
    return f;
}

/// Candidates of a picture of 20 columns.
class StixelSupportTest : public testing::Test {
protected:
    static constexpr int kColumns = 20;

    StixelCandidate& add(int column, float disparity, float thing) {
        StixelCandidate one;
        one.stixel.column = column;
        one.stixel.disparity = disparity;
        one.stixel.confidence = 0.85f;
        one.stixel.y_top = 100;
        one.stixel.y_bottom = 140;
        one.evidence = 30;
        one.features = featuresBetween(thing);
        candidates_.push_back(one);
        return candidates_.back();
    }

    std::vector<StixelCandidate> kept(std::vector<StixelCandidate> candidates) {
        std::stable_sort(candidates.begin(), candidates.end(),
                         [](const StixelCandidate& p, const StixelCandidate& q) {
                             return p.stixel.column < q.stixel.column;
                         });
        std::vector<int> first(kColumns + 1, 0);
        for (const StixelCandidate& one : candidates)
            for (int c = one.stixel.column + 1; c <= kColumns; ++c) ++first[c];
        StixelSupport().run(kFullStixelJudge, first, candidates);
        candidates.erase(std::remove_if(candidates.begin(), candidates.end(),
                                        [](const StixelCandidate& one) { return !one.kept; }),
                         candidates.end());
        return candidates;
    }
    std::size_t keptCount() { return kept(candidates_).size(); }

    /// The least of what a candidate needs to be kept all alone.
    float neededAlone() {
        float thing = 0;
        for (; thing < 1.5f; thing += 0.01f) {
            candidates_.clear();
            add(5, 8, thing);
            if (keptCount() == 1)
                break;
        }
        candidates_.clear();
        return thing;
    }

    std::vector<StixelCandidate> candidates_;
};

TEST_F(StixelSupportTest, ThingsAreKeptAndGroundIsNot) {
    for (int column = 4; column < 10; ++column) add(column, 8, 1);
    for (const StixelCandidate& one : kept(candidates_)) EXPECT_GT(one.stixel.confidence, 0.9f);
    EXPECT_EQ(keptCount(), 6u);
    candidates_.clear();
    for (int column = 4; column < 10; ++column) add(column, 8, 0);
    EXPECT_EQ(keptCount(), 0u);
}

TEST_F(StixelSupportTest, AClearPostOfOneColumnIsKept) {
    const float needed = neededAlone();
    EXPECT_GT(needed, 0.1f);
    EXPECT_LT(needed, 1.0f);
}

TEST_F(StixelSupportTest, WeakColumnsAreKeptTogetherButNotAlone) {
    const float weak = neededAlone() - 0.05f;
    add(5, 8, weak);
    EXPECT_EQ(keptCount(), 0u);
    for (int column = 3; column < 10; ++column)
        if (column != 5)
            add(column, 8.2f, weak);
    EXPECT_EQ(keptCount(), 7u);
}

TEST_F(StixelSupportTest, OneThatStandsAloneMustBeSurer) {
    const auto leastConfidence = [&](int columns) {
        for (float thing = 0; thing < 1.5f; thing += 0.002f) {
            candidates_.clear();
            for (int i = 0; i < columns; ++i) add(5 + i, 8, thing);
            const auto all = kept(candidates_);
            if (!all.empty())
                return all[0].stixel.confidence;
        }
        return 0.0f;
    };
    EXPECT_NEAR(leastConfidence(1), 0.9f, 0.01f);
    EXPECT_NEAR(leastConfidence(2), 0.8f, 0.01f);
}

TEST_F(StixelSupportTest, ColumnsAtOtherDistancesBringNothing) {
    const float weak = neededAlone() - 0.05f;
    add(5, 8, weak);
    const float alone = [&] {
        std::vector<int> first(kColumns + 1, 0);
        for (int c = 6; c <= kColumns; ++c) first[c] = 1;
        StixelSupport().run(kFullStixelJudge, first, candidates_);
        return candidates_[0].stixel.confidence;
    }();
    add(3, 14, 1);
    add(4, 14, 1);
    add(6, 14, 1);
    for (const StixelCandidate& one : kept(candidates_)) EXPECT_NE(one.stixel.column, 5);
    EXPECT_LT(alone, 0.9f);
}

TEST_F(StixelSupportTest, AnEdgeIsWiderThanTwoColumns) {
    for (int column = 5; column < 7; ++column) add(column, 15, 0).edge = true;
    EXPECT_EQ(keptCount(), 0u);
    add(7, 15, 0).edge = true;
    EXPECT_EQ(keptCount(), 3u);
    for (StixelCandidate& one : candidates_) one.stixel.confidence = 0.5f;
    EXPECT_EQ(keptCount(), 0u);
}

TEST_F(StixelSupportTest, WhatIsTooNearNeedsNoPictures) {
    add(5, 64, 0).stixel.too_near = true;
    EXPECT_EQ(keptCount(), 0u);
    add(6, 64, 0).stixel.too_near = true;
    EXPECT_EQ(keptCount(), 2u);
}

TEST_F(StixelSupportTest, WithoutOneNoOtherIsAdded) {
    std::mt19937 random(4);
    const auto draw = [&](float low, float high) {
        return low + (high - low) * static_cast<float>(random() % 1000) / 1000;
    };
    int dropped = 0;
    for (int round = 0; round < 200; ++round) {
        candidates_.clear();
        for (int i = 0; i < 25; ++i) {
            StixelCandidate& one =
                add(static_cast<int>(random() % kColumns), draw(8, 11), draw(0, 0.8f));
            one.stixel.confidence = draw(0.5f, 0.95f);
            one.evidence = draw(0, 40);
            one.edge = random() % 5 == 0;
            one.stixel.y_top = static_cast<int>(random() % 140);
            one.stixel.lateral_mm = static_cast<float>(i);  // its name
        }
        const auto all = kept(candidates_);
        candidates_.erase(candidates_.begin() + static_cast<int>(random() % candidates_.size()));
        const auto fewer = kept(candidates_);
        dropped += fewer.size() < all.size();
        for (const StixelCandidate& one : fewer)
            EXPECT_TRUE(std::any_of(all.begin(), all.end(), [&](const StixelCandidate& other) {
                return other.stixel.lateral_mm == one.stixel.lateral_mm;
            }));
    }
    EXPECT_GT(dropped, 20);
}

}  // namespace
}  // namespace kova::camera
