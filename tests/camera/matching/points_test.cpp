#include "camera/matching/points.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "camera/base/disparity.h"
#include "camera/base/parallel.h"
#include "camera/matching/points_reference.h"

#include "hwy/tests/hwy_gtest.h"

namespace kova::camera {
namespace {

RectifiedGeometry geometryOf(int width, int height) {
    RectifiedGeometry g;
    g.width = width;
    g.height = height;
    g.fx = 707.3;
    g.fy = 706.1;
    g.cx = width / 2.0 + 0.37;
    g.cy = height / 2.0 - 1.21;
    g.cx_right = g.cx;
    g.baseline_mm = 120.7;
    return g;
}

Image<std::uint16_t> randomDisparities(int width, int height, std::mt19937& random) {
    Image<std::uint16_t> map(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const std::uint16_t special[] = {
                kInvalidDisparity, kTooNearDisparity, 0, 1, kFirstReservedDisparity - 1, 0x8000};
            map.at(x, y) = random() % 4 == 0 ? special[random() % 6]
                                             : static_cast<std::uint16_t>(random() % 2048);
        }
    return map;
}

class PointsTest : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(PointsTest);

TEST_P(PointsTest, EqualsTheReferenceForAllSmallSizes) {
    constexpr float kGuard = 1234.5F;
    std::mt19937 random(1);
    for (int width = 1; width <= 70; ++width)
        for (const int height : {1, 2, 19})
            for (const double offset : {0.0, 31.34, -2.5}) {
                const Image<std::uint16_t> map = randomDisparities(width, height, random);
                RectifiedGeometry g = geometryOf(width, height);
                g.cx_right = g.cx + offset;
                const PointLimits limits{500, 30000};
                const std::size_t count = static_cast<std::size_t>(width) * height * 3;
                std::vector<float> expected(count + 16, kGuard), actual(count + 16, kGuard);
                computePointsReference(map.view(), g, limits, expected.data());
                for (const int threads : {1, 3}) {
                    setThreadCount(threads);
                    computePoints(map.view(), g, limits, actual.data());
                    ASSERT_EQ(0, std::memcmp(expected.data(), actual.data(),
                                             expected.size() * sizeof(float)))
                        << width << "x" << height << " offset " << offset;
                }
                setThreadCount(0);
            }
}

TEST(Points, AgreeWithTheGeometry) {
    const RectifiedGeometry g = geometryOf(64, 48);
    Image<std::uint16_t> map(64, 48);
    map.fill(kInvalidDisparity);
    map.at(10, 7) = 20 * kDisparityScale + 8;
    map.at(11, 7) = kTooNearDisparity;
    map.at(12, 7) = 0;
    std::vector<float> points(64 * 48 * 3);
    computePoints(map.view(), g, {}, points.data());
    const float* p = &points[(7 * 64 + 10) * 3];
    const double z = g.fx * g.baseline_mm / 20.5;
    EXPECT_NEAR(z, p[2], 1e-3);
    EXPECT_NEAR((10 - g.cx) / g.fx * z, p[0], 1e-3);
    EXPECT_NEAR((7 - g.cy) / g.fy * z, p[1], 1e-3);
    int valid = 0;
    for (const float v : points) valid += !std::isnan(v);
    EXPECT_EQ(3, valid) << "invalid, too near and infinitely far points are not numbers";
}

TEST(Points, LimitsOnlyRemove) {
    const RectifiedGeometry g = geometryOf(64, 1);
    Image<std::uint16_t> map(64, 1);
    for (int x = 0; x < 64; ++x) map.at(x, 0) = static_cast<std::uint16_t>((x + 1) * 16);
    std::vector<float> all(64 * 3), some(64 * 3);
    computePoints(map.view(), g, {}, all.data());
    const PointLimits limits{2000, 10000};
    computePoints(map.view(), g, limits, some.data());
    for (int x = 0; x < 64; ++x) {
        const float z = all[x * 3 + 2];
        if (z >= limits.min_mm && z <= limits.max_mm)
            EXPECT_EQ(0, std::memcmp(&all[x * 3], &some[x * 3], 12));
        else
            EXPECT_TRUE(std::isnan(some[x * 3]) && std::isnan(some[x * 3 + 1]) &&
                        std::isnan(some[x * 3 + 2]));
    }
}

}  // namespace
}  // namespace kova::camera
