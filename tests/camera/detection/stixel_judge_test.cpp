#include "camera/detection/stixel_judge.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kova::camera {
namespace {

TEST(StixelJudge, CurvesAreLinearBetweenKnotsAndConstantBeyond) {
    const JudgeCurve curve = {{0, 1, 2, 4, 5, 6, 7, 8}, {0, 10, 10, 30, 5, 5, 5, -1}};
    EXPECT_EQ(curve(-3), 0);
    EXPECT_EQ(curve(0.5f), 5);
    EXPECT_EQ(curve(3), 20);
    EXPECT_EQ(curve(4), 30);
    EXPECT_EQ(curve(7.5f), 2);
    EXPECT_EQ(curve(100), -1);
}

TEST(StixelJudge, WhatIsNotKnownHasNoSay) {
    StixelFeatures features = unknownFeatures();
    EXPECT_EQ(kFullStixelJudge.ownOdds(features), kFullStixelJudge.bias);
    features[kEvidence] = 5;
    EXPECT_EQ(kFullStixelJudge.ownOdds(features),
              kFullStixelJudge.bias + kFullStixelJudge.own[kEvidence](5));
}

void expectRises(const JudgeCurve& curve, const char* name) {
    for (int k = 1; k < JudgeCurve::kKnots; ++k)
        EXPECT_GE(curve.value[k], curve.value[k - 1]) << name << " " << k;
    EXPECT_GT(curve.value.back(), curve.value.front()) << name;
}

class FittedJudge : public testing::TestWithParam<const StixelJudge*> {};

TEST_P(FittedJudge, MoreEvidenceNeverSpeaksAgainstAThing) {
    const StixelJudge& judge = *GetParam();
    expectRises(judge.own[kMatchConfidence], "match confidence");
    expectRises(judge.own[kEvidence], "evidence");
    expectRises(judge.own[kCorrelation], "correlation");
    expectRises(judge.own[kGroundLogRatio], "ground ratio");
    expectRises(judge.own[kPeakLogRatio], "peak ratio");
    expectRises(judge.near, "near");
    EXPECT_GT(judge.own_weight, 0);
}

TEST_P(FittedJudge, KnotsRise) {
    const auto check = [](const JudgeCurve& curve) {
        for (int k = 1; k < JudgeCurve::kKnots; ++k) {
            EXPECT_GT(curve.at[k], curve.at[k - 1]);
            EXPECT_TRUE(std::isfinite(curve.value[k]));
        }
    };
    for (const JudgeCurve& curve : GetParam()->own) check(curve);
    check(GetParam()->near);
}

INSTANTIATE_TEST_SUITE_P(Sizes, FittedJudge, testing::Values(&kFullStixelJudge, &kHalfStixelJudge));

}  // namespace
}  // namespace kova::camera
