#include "camera/pipeline/distance_range.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kova::camera {
namespace {

RectifiedGeometry rig(int width, double fx, double baseline_mm, double offset = 0) {
    RectifiedGeometry g;
    g.width = width;
    g.height = width / 2;
    g.fx = g.fy = fx;
    g.cx = width / 2.0;
    g.cx_right = g.cx + offset;
    g.cy = g.height / 2.0;
    g.baseline_mm = baseline_mm;
    return g;
}
const RectifiedGeometry kHd = rig(1280, 760, 120);
const RectifiedGeometry kSd = rig(640, 380, 120);

TEST(DistanceRange, StartsAtTheDefaultSearchAndTheFullReach) {
    const DistanceRange hd(kHd);
    EXPECT_NEAR(hd.minMm(), 760 * 120 / 128.0, 0.1);
    EXPECT_NEAR(hd.maxMm(), 760 * 120 / 4.0, 0.1);  // a quarter of error at one pixel
    const DistanceRange sd(kSd);
    EXPECT_NEAR(sd.minMm(), 380 * 120 / 64.0, 0.1);
    EXPECT_NEAR(sd.maxMm(), 380 * 120 / 4.0, 0.1);
}

TEST(DistanceRange, ReachEndsAtFiftyMetres) {
    EXPECT_EQ(DistanceRange(rig(1280, 2000, 500)).maxMm(), 50000.0f);
}

TEST(DistanceRange, SettersClamp) {
    DistanceRange range(kHd);
    range.setMinMm(1);
    EXPECT_NEAR(range.minMm(), 760 * 120 / 320.0, 0.1) << "the widest search";
    range.setMaxMm(1e9f);
    EXPECT_NEAR(range.maxMm(), 760 * 120 / 4.0, 0.1);
    range.setMaxMm(5000);
    range.setMinMm(9000);
    EXPECT_LT(range.minMm(), range.maxMm());
    EXPECT_EQ(range.maxMm(), 5000.0f);
    range.setMinMm(2000);
    range.setMaxMm(10);
    EXPECT_EQ(range.minMm(), 2000.0f);
    EXPECT_GT(range.maxMm(), range.minMm());
    range.setMinMm(std::nanf(""));
    range.setMaxMm(std::nanf(""));
    EXPECT_EQ(range.minMm(), 2000.0f);
}

TEST(SearchRange, DefaultLimitsGiveTheDefaultSearch) {
    const DistanceRange hd(kHd);
    const DisparityRange d = searchRange(kHd, hd.minMm(), hd.maxMm());
    EXPECT_EQ(d.max, 128);
    EXPECT_EQ(d.min, 4);
    const DistanceRange sd(kSd);
    EXPECT_EQ(searchRange(kSd, sd.minMm(), sd.maxMm()).max, 64);
}

TEST(SearchRange, IsNeverNarrowerOrWiderThanTheMatcherTakes) {
    const DisparityRange narrow = searchRange(kHd, 5000, 5200);
    EXPECT_EQ(narrow.max - narrow.min, kFewestDisparities);
    EXPECT_LE(narrow.min, 760 * 120 / 5200.0);
    const DisparityRange wide = searchRange(kHd, 1, 22800);
    EXPECT_EQ(wide.max - wide.min, kMostDisparities);
}

TEST(SearchRange, CountsTheOffsetOfThePrincipalPoints) {
    const RectifiedGeometry g = rig(1280, 760, 120, 30);
    EXPECT_NEAR(depthMm(g, 61.2), 1000, 0.01);
    const DisparityRange d = searchRange(g, 1000, 22800);
    EXPECT_EQ(d.min, 0);
    EXPECT_EQ(d.max, 62);
    EXPECT_TRUE(std::isinf(depthMm(g, -30)));
}

}  // namespace
}  // namespace kova::camera
