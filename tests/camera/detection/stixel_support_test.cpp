#include "camera/detection/stixel_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace kova::camera {
namespace {

/// Candidates of a picture of 20 columns.
class StixelSupportTest : public testing::Test {
protected:
    static constexpr int kColumns = 20;

    StixelCandidate& add(int column, float disparity, float confidence, float evidence) {
        StixelCandidate one;
        one.stixel.column = column;
        one.stixel.disparity = disparity;
        one.stixel.confidence = confidence;
        one.stixel.y_top = 100;
        one.stixel.y_bottom = 140;
        one.stixel.low_mm = 0;
        one.stixel.high_mm = 400;
        one.evidence = evidence;
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
        StixelSupport().run(first, candidates);
        candidates.erase(std::remove_if(candidates.begin(), candidates.end(),
                                        [](const StixelCandidate& one) { return !one.kept; }),
                         candidates.end());
        return candidates;
    }
    std::size_t keptCount() { return kept(candidates_).size(); }

    std::vector<StixelCandidate> candidates_;
};

TEST_F(StixelSupportTest, WeakColumnsAreKeptTogetherButNotAlone) {
    add(5, 8, 0.8f, 9);
    EXPECT_EQ(keptCount(), 0u);
    add(6, 8.4f, 0.8f, 9);
    add(7, 8.8f, 0.8f, 9);
    EXPECT_EQ(keptCount(), 3u);
}

TEST_F(StixelSupportTest, ColumnsAtOtherDistancesBringNothing) {
    add(5, 8, 0.8f, 9);
    add(6, 11, 0.8f, 9);
    add(7, 14, 0.8f, 9);
    EXPECT_EQ(keptCount(), 0u);
}

TEST_F(StixelSupportTest, AClearPostOfOneColumnIsKept) {
    add(5, 8, 0.85f, 35);
    EXPECT_EQ(keptCount(), 1u);
    candidates_[0].stixel.confidence = 0.7f;
    EXPECT_EQ(keptCount(), 0u);
    candidates_[0].texture = 2;  // no noise: a surface
    EXPECT_EQ(keptCount(), 1u);
}

TEST_F(StixelSupportTest, WhatLiesLikeGroundNeedsHighQuality) {
    for (int column = 2; column < 8; ++column) add(column, 10, 0.7f, 20).upright = 3;
    EXPECT_EQ(keptCount(), 0u);
    for (StixelCandidate& one : candidates_) one.stixel.confidence = 0.92f;
    EXPECT_EQ(keptCount(), 6u);
    for (StixelCandidate& one : candidates_) {
        one.stixel.confidence = 0.7f;
        one.upright = 15;
    }
    EXPECT_EQ(keptCount(), 6u);
}

TEST_F(StixelSupportTest, WhatHangsMustBeWide) {
    for (int column = 5; column < 7; ++column) {
        StixelCandidate& top = add(column, 12, 0.8f, 15);
        top.hangs = true;
        top.stixel.low_mm = 680;
        top.stixel.high_mm = 740;
    }
    EXPECT_EQ(keptCount(), 0u);
    candidates_.push_back(candidates_.back());
    candidates_.back().stixel.column = 7;
    EXPECT_EQ(keptCount(), 3u);  // a table top
}

TEST_F(StixelSupportTest, NoiseOfTheSkyIsDroppedHoweverWide) {
    for (int column = 2; column < 12; ++column) {
        StixelCandidate& patch = add(column, 4, 0.66f, 30);
        patch.stixel.y_top = 0;
        patch.stixel.high_mm = 4500;
    }
    EXPECT_EQ(keptCount(), 0u);
    for (StixelCandidate& patch : candidates_) patch.stixel.high_mm = 1700;
    EXPECT_EQ(keptCount(), 10u);
}

TEST_F(StixelSupportTest, WhatIsFarNeedsHighQuality) {
    for (int column = 2; column < 8; ++column) add(column, 2.6f, 0.8f, 30);
    EXPECT_EQ(keptCount(), 0u);
    for (StixelCandidate& one : candidates_) one.stixel.confidence = 0.88f;
    EXPECT_EQ(keptCount(), 6u);
}

TEST_F(StixelSupportTest, AnEdgeIsWiderThanTwoColumns) {
    for (int column = 5; column < 7; ++column) add(column, 15, 0.85f, 30).edge = true;
    EXPECT_EQ(keptCount(), 0u);
    add(7, 15, 0.85f, 30).edge = true;
    EXPECT_EQ(keptCount(), 3u);
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
            StixelCandidate& one = add(static_cast<int>(random() % kColumns), draw(8, 11),
                                       draw(0.5f, 0.95f), draw(0, 40));
            one.hangs = random() % 4 == 0;
            one.edge = random() % 5 == 0;
            one.stixel.low_mm = draw(0, 2000);
            one.stixel.high_mm = one.stixel.low_mm + draw(50, 1500);
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
