#include "camera/detection/stixel_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace kova::camera {
namespace {

/// One question with two answers [nat].
StixelTree question(StixelFeature feature, float limit, double no, double yes) {
    StixelTree tree{};
    tree.feature.fill(static_cast<std::uint8_t>(feature));
    tree.limit.fill(limit);
    tree.value.fill(static_cast<std::int16_t>(std::lround(1000 * no)));
    tree.value.back() = static_cast<std::int16_t>(std::lround(1000 * yes));
    return tree;
}

/// By itself a candidate is a thing (92 %) if its evidence is above 2, otherwise not (8 %);
/// together it is one if 1.5 others beside it are.
StixelJudge simpleJudge() {
    StixelJudge judge;
    judge.alone = {0, {question(kEvidence, 2, -2.5, 2.5)}};
    judge.together = {0, {question(kNear, 1.5f, -2, 2)}};
    return judge;
}

/// Candidates of a picture of 20 columns, each 5 px wide.
class StixelSupportTest : public testing::Test {
protected:
    static constexpr int kColumns = 20;

    StixelCandidate& add(int column, float disparity, bool sure = true) {
        StixelCandidate one;
        one.stixel.column = column;
        one.stixel.x_begin = 5 * column;
        one.stixel.x_end = 5 * column + 5;
        one.stixel.disparity = disparity;
        one.stixel.confidence = 0.85f;
        one.stixel.y_top = 100;
        one.stixel.y_bottom = 140;
        one.evidence = 30;
        one.features[kEvidence] = sure ? 3.0f : 1.0f;
        candidates_.push_back(one);
        return candidates_.back();
    }

    /// All candidates by column, judged.
    std::vector<StixelCandidate> judged() {
        std::vector<StixelCandidate> candidates = candidates_;
        std::stable_sort(candidates.begin(), candidates.end(),
                         [](const StixelCandidate& p, const StixelCandidate& q) {
                             return p.stixel.column < q.stixel.column;
                         });
        std::vector<int> first(kColumns + 1, 0);
        for (const StixelCandidate& one : candidates)
            for (int c = one.stixel.column + 1; c <= kColumns; ++c) ++first[c];
        StixelSupport().run(judge_, first, candidates);
        return candidates;
    }
    std::vector<int> keptColumns() {
        std::vector<int> columns;
        for (const StixelCandidate& one : judged())
            if (one.kept)
                columns.push_back(one.stixel.column);
        return columns;
    }
    /// Features of the only candidate at (column, disparity).
    StixelFeatures features(int column, float disparity) {
        for (const StixelCandidate& one : judged())
            if (one.stixel.column == column && one.stixel.disparity == disparity)
                return one.features;
        ADD_FAILURE();
        return unknownFeatures();
    }

    const float sure_ = 1 / (1 + std::exp(-2.5f)), unsure_ = 1 / (1 + std::exp(2.5f));
    StixelJudge judge_ = simpleJudge();
    std::vector<StixelCandidate> candidates_;
};

TEST_F(StixelSupportTest, IsJudgedByItselfThenTogether) {
    for (int column = 4; column < 9; ++column) add(column, 8, column != 6);
    add(15, 8);
    const auto all = judged();
    EXPECT_NEAR(all[0].own_probability, sure_, 1e-5f);
    EXPECT_NEAR(all[2].own_probability, unsure_, 1e-5f);
    EXPECT_NEAR(all[2].stixel.confidence, 1 / (1 + std::exp(-2.0f)), 1e-5f);
    // The unsure one among the sure is kept, the sure one alone is not.
    EXPECT_EQ(keptColumns(), (std::vector<int>{4, 5, 6, 7, 8}));
}

TEST_F(StixelSupportTest, SumsOfItsGroup) {
    add(1, 8.3f);
    add(7, 8.3f);
    for (int column = 8; column < 12; ++column) add(column, 8, column != 8);
    add(12, 8.2f);
    for (int column = 13; column < 16; ++column) add(column, 8, false);
    const StixelFeatures f = features(12, 8.2f);
    EXPECT_FLOAT_EQ(f[kOwnOdds], 2.5f);
    EXPECT_NEAR(f[kNearest], sure_ + unsure_, 1e-5f);
    EXPECT_NEAR(f[kNear], 3 * sure_ + 3 * unsure_, 1e-5f);
    EXPECT_NEAR(f[kAround], 4 * sure_ + 4 * unsure_, 1e-5f);
    EXPECT_NEAR(f[kGroupSum], 5 * sure_ + 4 * unsure_, 1e-5f);  // the one in column 1 is apart
    EXPECT_NEAR(f[kLesserSide], unsure_, 1e-5f);
    EXPECT_NEAR(f[kGreaterSide], sure_, 1e-5f);
    EXPECT_EQ(f[kRival], 0);
    EXPECT_EQ(f[kSameColumn], 0);
    EXPECT_EQ(f[kHidden], 0);
}

TEST_F(StixelSupportTest, StepsToItsGroup) {
    add(9, 8).stixel.y_bottom = 150;
    add(11, 8).stixel.y_top = 90;
    add(10, 8.4f);
    const StixelFeatures f = features(10, 8.4f);
    EXPECT_NEAR(f[kDisparityStep], 0.4f, 1e-5f);
    EXPECT_NEAR(f[kFootStep], 5 / 8.4f, 1e-5f);
    EXPECT_NEAR(f[kTopStep], -5 / 8.4f, 1e-5f);
    candidates_.erase(candidates_.begin(), candidates_.begin() + 2);
    EXPECT_TRUE(std::isnan(features(10, 8.4f)[kDisparityStep]));
}

TEST_F(StixelSupportTest, OthersInItsRowsAndColumn) {
    add(10, 8);
    add(11, 14);                      // a rival
    add(10, 8.5f).stixel.y_top = 60;  // above it, at its distance
    candidates_.back().stixel.y_bottom = 80;
    add(12, 8).stixel.y_top = 20;  // of another group
    candidates_.back().stixel.y_bottom = 50;
    const StixelFeatures f = features(10, 8);
    EXPECT_NEAR(f[kRival], sure_, 1e-5f);
    EXPECT_NEAR(f[kSameColumn], sure_, 1e-5f);
    EXPECT_NEAR(f[kOtherGroups], sure_, 1e-5f);
    EXPECT_EQ(f[kNear], 0);
    candidates_[1].stixel.y_top = 140;  // in other rows now
    candidates_[1].stixel.y_bottom = 180;
    EXPECT_EQ(features(10, 8)[kRival], 0);
}

TEST_F(StixelSupportTest, WhatSomethingNearerHidesFromTheRightEye) {
    add(5, 8);
    add(7, 30);
    EXPECT_NEAR(features(5, 8)[kHidden], (30 - 5) / 5.0f, 1e-5f);
    candidates_[1].features[kEvidence] = 1;  // rather no thing
    EXPECT_EQ(features(5, 8)[kHidden], 0);
    candidates_[1].features[kEvidence] = 3;
    candidates_[1].stixel.column = 3;  // to the left
    candidates_[1].stixel.x_begin = 15, candidates_[1].stixel.x_end = 20;
    EXPECT_EQ(features(5, 8)[kHidden], 0);
}

TEST_F(StixelSupportTest, EdgesAreJudgedLikeTheRest) {
    for (int column = 5; column < 7; ++column) add(column, 15).edge = true;
    EXPECT_TRUE(keptColumns().empty());
    add(7, 15).edge = true;
    EXPECT_EQ(keptColumns().size(), 3u);
    candidates_.back().features[kEvidence] = 1;  // two sure ones stand beside it alone
    EXPECT_EQ(keptColumns(), std::vector<int>{7});
}

TEST_F(StixelSupportTest, WhatIsTooNearNeedsSizeAndNoPictures) {
    const auto addTooNear = [&](int column) -> StixelCandidate& {
        StixelCandidate& one = add(column, 64);
        one.stixel.too_near = true;
        one.evidence = 90;
        return one;
    };
    addTooNear(5).evidence = 400;
    EXPECT_TRUE(keptColumns().empty());
    candidates_.clear();
    addTooNear(5);
    addTooNear(6);
    EXPECT_EQ(keptColumns().size(), 2u);
    candidates_.back().evidence = 40;
    EXPECT_TRUE(keptColumns().empty());
    add(7, 64).evidence = 400;  // what was measured says nothing about the others
    for (const StixelCandidate& one : judged()) EXPECT_FALSE(one.kept && one.stixel.too_near);
}

TEST_F(StixelSupportTest, WhatIsNotWantedChangesNothingAboutTheOthers) {
    std::mt19937 random(4);
    const auto draw = [&](float low, float high) {
        return low + (high - low) * static_cast<float>(random() % 1000) / 1000;
    };
    int dropped = 0;
    for (int round = 0; round < 200; ++round) {
        candidates_.clear();
        for (int i = 0; i < 25; ++i) {
            StixelCandidate& one =
                add(static_cast<int>(random() % kColumns), draw(8, 11), random() % 2);
            one.stixel.confidence = draw(0.5f, 0.95f);
            one.evidence = draw(0, 40);
            one.edge = random() % 5 == 0;
            one.stixel.y_top = static_cast<int>(random() % 140);
        }
        const auto all = judged();
        for (StixelCandidate& one : candidates_) one.wanted = random() % 4 != 0;
        const auto fewer = judged();
        for (std::size_t i = 0; i < all.size(); ++i) {
            EXPECT_EQ(fewer[i].kept, all[i].kept && fewer[i].wanted);
            EXPECT_EQ(fewer[i].stixel.confidence, all[i].stixel.confidence);
            dropped += all[i].kept && !fewer[i].kept;
        }
    }
    EXPECT_GT(dropped, 20);
}

}  // namespace
}  // namespace kova::camera
