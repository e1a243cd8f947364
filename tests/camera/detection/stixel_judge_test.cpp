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
    EXPECT_EQ(kStixelJudge.ownOdds(features), kStixelJudge.bias);
    features[kEvidence] = 5;
    EXPECT_EQ(kStixelJudge.ownOdds(features), kStixelJudge.bias + kStixelJudge.own[kEvidence](5));
}

void expectRises(const JudgeCurve& curve, const char* name) {
    for (int k = 1; k < JudgeCurve::kKnots; ++k)
        EXPECT_GE(curve.value[k], curve.value[k - 1]) << name << " " << k;
    EXPECT_GT(curve.value.back(), curve.value.front()) << name;
}

TEST(StixelJudge, MoreEvidenceNeverSpeaksAgainstAThing) {
    expectRises(kStixelJudge.own[kMatchConfidence], "match confidence");
    expectRises(kStixelJudge.own[kEvidence], "evidence");
    expectRises(kStixelJudge.own[kCorrelation], "correlation");
    expectRises(kStixelJudge.own[kGroundLogRatio], "ground ratio");
    expectRises(kStixelJudge.own[kPeakLogRatio], "peak ratio");
    expectRises(kStixelJudge.near, "near");
    expectRises(kStixelJudge.whole, "group");
    EXPECT_GT(kStixelJudge.own_weight, 0);
}

TEST(StixelJudge, KnotsRise) {
    const auto check = [](const JudgeCurve& curve) {
        for (int k = 1; k < JudgeCurve::kKnots; ++k) {
            EXPECT_GT(curve.at[k], curve.at[k - 1]);
            EXPECT_TRUE(std::isfinite(curve.value[k]));
        }
    };
    for (const JudgeCurve& curve : kStixelJudge.own) check(curve);
    check(kStixelJudge.near);
    check(kStixelJudge.whole);
}

}  // namespace
}  // namespace kova::camera
