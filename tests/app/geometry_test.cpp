#include "app/geometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace kova::app {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
const float kNan = std::numeric_limits<float>::quiet_NaN();

TEST(Geometry, TruncationKeepsWithinTheRangeOfInt) {
    EXPECT_EQ(truncated(2.9), 2);
    EXPECT_EQ(truncated(-2.9), -2);
    EXPECT_EQ(truncated(1e20), std::numeric_limits<int>::max());
    EXPECT_EQ(truncated(-1e20), std::numeric_limits<int>::min());
    EXPECT_EQ(truncated(kInfinity), std::numeric_limits<int>::max());
    EXPECT_EQ(truncated(kNan), 0);
}

TEST(Geometry, WindowSizeOnScreens) {
    EXPECT_EQ(windowSizeForScreen(1920, 1080), QSize(1745, 977));
    EXPECT_EQ(windowSizeForScreen(1280, 720), QSize(1163, 651));
    EXPECT_EQ(windowSizeForScreen(2560, 1440), std::nullopt);
    EXPECT_EQ(windowSizeForScreen(2500, 1400), std::nullopt);
    EXPECT_EQ(windowSizeForScreen(2499, 4000), QSize(2271, 1272));
    EXPECT_EQ(windowSizeForScreen(4000, 1399), QSize(2271, 1271));
}

TEST(Geometry, DisplayRatioIsInfiniteWithoutAnImage) {
    EXPECT_EQ(displayRatio(320, 640), 0.5f);
    EXPECT_EQ(displayRatio(320, 0), kInfinity);
}

struct PixelRow {
    Size2_<int> view;
    float ratio_x, ratio_y;
    Size2_<int> image;
};

TEST(Geometry, ImagePixelUnderAViewPixel) {
    const PixelRow rows[] = {
        {{0, 0}, 1.0f, 1.0f, {0, 0}},
        {{10, 20}, 1.0f, 1.0f, {10, 20}},
        {{319, 199}, 0.5f, 0.5f, {639, 399}},
        {{0, 0}, 0.5f, 0.25f, {1, 3}},
        {{99, 99}, 2.0f, 3.0f, {49, 32}},
        // Truncated towards zero, so the first view pixels of an enlarged image give 0.
        {{0, 0}, 4.0f, 4.0f, {0, 0}},
        {{-3, -7}, 0.5f, 0.5f, {-5, -13}},
        // No point stays no point, whatever the scale.
        {{-1, -1}, 0.7f, 1.3f, {-1, -1}},
        {{50, 60}, kInfinity, kInfinity, {-1, -1}},
    };
    for (const PixelRow& row : rows)
        EXPECT_EQ(imagePixel(row.view, row.ratio_x, row.ratio_y), row.image)
            << row.view.x << " " << row.view.y << " at " << row.ratio_x;
}

TEST(Geometry, ImagePixelOfAViewWithoutExtentIsDefined) {
    EXPECT_EQ(imagePixel({-1, -1}, 0.0f, kNan), (Size2_<int>{0, 0}));
    EXPECT_EQ(imagePixel({5, -9}, 0.0f, 0.0f),
              (Size2_<int>{std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}));
}

TEST(Geometry, CloudPointsAreReadRowAfterRow) {
    std::vector<float> cloud(3 * 4 * 3);
    for (std::size_t i = 0; i < cloud.size(); ++i) cloud[i] = static_cast<float>(i);
    const auto point = cloudPoint(cloud.data(), 4, 3, {1, 2});
    ASSERT_TRUE(point);
    EXPECT_EQ(point->x, 27.0f);
    EXPECT_EQ(point->y, 28.0f);
    EXPECT_EQ(point->z, 29.0f);
}

TEST(Geometry, CloudPointsOutsideThePictureAreNone) {
    const std::vector<float> cloud(3 * 4 * 3);
    for (const Size2_<int> pixel : {Size2_<int>{-1, 0}, {0, -1}, {4, 0}, {0, 3}, {-5, -5}})
        EXPECT_FALSE(cloudPoint(cloud.data(), 4, 3, pixel)) << pixel.x << " " << pixel.y;
    EXPECT_TRUE(cloudPoint(cloud.data(), 4, 3, {3, 2}));
    EXPECT_FALSE(cloudPoint(nullptr, 4, 3, {0, 0}));
}

TEST(Geometry, DistanceIsEuclidean) {
    EXPECT_EQ(distanceBetween({1, 2, 3}, {3, 5, 9}), 7.0f);
    EXPECT_EQ(distanceBetween({1, 2, 3}, {1, 2, 3}), 0.0f);
    EXPECT_TRUE(std::isnan(distanceBetween({kNan, 0, 0}, {0, 0, 0})));
}

TEST(Geometry, TopViewSizeIsTruncated) {
    EXPECT_EQ(topViewSize({1000, 2000, 100, 5100, 0.05f}), QSize(200, 250));
    EXPECT_EQ(topViewSize({0, 10.9f, 1, 4.9f, 0.5f}), QSize(10, 1));
    EXPECT_EQ(topViewSize({}), QSize(0, 0));
}

TEST(Geometry, ExposureOfASliderPosition) {
    EXPECT_EQ(exposureTime(2000, 2000, 20.0f), 20.0f);
    EXPECT_EQ(exposureTime(500, 2000, 20.0f), 5.0f);
    EXPECT_EQ(exposureTime(500, 2000, 0.0f), 0.0f);
}

TEST(Geometry, SliderPositionOfAnExposure) {
    EXPECT_EQ(exposurePosition(5, 2000, 20, ExposureRounding::nearest), 500);
    EXPECT_EQ(exposurePosition(5.006f, 2000, 20, ExposureRounding::nearest), 501);
    EXPECT_EQ(exposurePosition(5.006f, 2000, 20, ExposureRounding::truncate), 500);
    EXPECT_EQ(exposurePosition(5.004f, 2000, 20, ExposureRounding::nearest), 500);
}

TEST(Geometry, SliderPositionWithoutExposureControl) {
    for (const auto rounding : {ExposureRounding::nearest, ExposureRounding::truncate}) {
        EXPECT_EQ(exposurePosition(0, 2000, 0, rounding), 0);
        EXPECT_EQ(exposurePosition(7, 2000, 0, rounding), 0);
        EXPECT_EQ(exposurePosition(7, 2000, -1, rounding), 0);
        EXPECT_EQ(exposurePosition(7, 2000, kNan, rounding), 0);
    }
}

TEST(Geometry, ConfidenceRunsTheOtherWay) {
    EXPECT_EQ(confidenceThreshold(100), 0.0f);
    EXPECT_EQ(confidenceThreshold(75), 0.25f);
    EXPECT_EQ(confidenceThreshold(1), 0.99f);
}

TEST(Geometry, ObstacleHeightOfTheSpinBox) {
    struct Row {
        int spin_box;
        float height, foot;
    };
    for (const Row& row : {Row{0, 0.002f, 0.0005f}, {2, 0.0036f, 0.0014f}, {10, 0.01f, 0.005f}}) {
        bino::ObstacleDetectionParameters parameters;
        setObstacleHeight(parameters, row.spin_box);
        EXPECT_EQ(parameters.obstacle_min_height, row.height) << row.spin_box;
        EXPECT_EQ(parameters.obstacle_foot_height, row.foot) << row.spin_box;
        EXPECT_EQ(parameters.ground_min_region, 30);
        EXPECT_EQ(parameters.ground_min_support, 40);
    }
}

TEST(Geometry, GroundAreaOfTheSpinBox) {
    struct Row {
        int spin_box, region, support;
    };
    for (const Row& row : {Row{0, 5, 5}, {4, 25, 37}, {10, 55, 85}}) {
        bino::ObstacleDetectionParameters parameters;
        setGroundArea(parameters, row.spin_box);
        EXPECT_EQ(parameters.ground_min_region, row.region) << row.spin_box;
        EXPECT_EQ(parameters.ground_min_support, row.support) << row.spin_box;
        EXPECT_EQ(parameters.obstacle_min_height, 0.0036f);
    }
}

}  // namespace
}  // namespace kova::app
