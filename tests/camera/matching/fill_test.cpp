#include "camera/matching/fill.h"

#include <gtest/gtest.h>
#include <hwy/tests/hwy_gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "camera/base/parallel.h"

namespace kova::camera {
namespace {

/// Patches with holes of all sizes over a picture with edges.
struct Patches {
    Image<std::uint8_t> grey;
    DisparityMap map;

    Patches(int width, int height, unsigned seed) : grey(width, height) {
        std::mt19937 random(seed);
        map.resize(width, height);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                grey.at(x, y) = static_cast<std::uint8_t>((x / 11 + y / 7) % 5 * 45 + random() % 9);
                const bool hole = (x / 13 * 5 + y / 9 * 3) % 4 < 2 || random() % 30 == 0;
                map.disparity.at(x, y) = random() % 90 == 0 ? kTooNearDisparity
                                         : hole             ? kInvalidDisparity
                                                : static_cast<std::uint16_t>(random() % 2000);
                const bool measured = isDisparity(map.disparity.at(x, y));
                map.confidence.at(x, y) =
                    measured ? static_cast<std::uint8_t>(1 + random() % 200) : 0;
            }
    }
};

/// The definition, one pixel after the other.
void fillSlowly(const Image<std::uint8_t>& grey, DisparityMap& map) {
    const int width = grey.width(), height = grey.height();
    Image<std::uint16_t> distance(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            distance.at(x, y) = isDisparity(map.disparity.at(x, y)) ? 0 : 0xFFFF;
    const auto step = [&](int x, int y, int from_x, int from_y) {
        if (from_x < 0 || from_y < 0 || from_x >= width || from_y >= height ||
            map.disparity.at(x, y) == kTooNearDisparity || distance.at(from_x, from_y) == 0xFFFF)
            return;
        const int reached = std::min(distance.at(from_x, from_y) + EdgeAwareFill::kFillStep +
                                         std::abs(grey.at(x, y) - grey.at(from_x, from_y)),
                                     0xFFFE);
        if (reached < distance.at(x, y)) {
            distance.at(x, y) = static_cast<std::uint16_t>(reached);
            map.disparity.at(x, y) = map.disparity.at(from_x, from_y);
            map.confidence.at(x, y) = kFilledConfidence;
        }
    };
    for (int round = 0; round < EdgeAwareFill::kFillRounds; ++round) {
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) step(x, y, x - 1, y);
            for (int x = width - 1; x >= 0; --x) step(x, y, x + 1, y);
        }
        for (int x = 0; x < width; ++x) {
            for (int y = 0; y < height; ++y) step(x, y, x, y - 1);
            for (int y = height - 1; y >= 0; --y) step(x, y, x, y + 1);
        }
    }
}

class EdgeAwareFillTest : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(EdgeAwareFillTest);

TEST_P(EdgeAwareFillTest, EqualsItsDefinitionForEveryThreadCount) {
    constexpr int kSizes[][2] = {{1, 1}, {1, 40}, {40, 1}, {33, 7}, {70, 66}, {300, 90}};
    for (const auto& size : kSizes) {
        Patches expected(size[0], size[1], 4);
        fillSlowly(expected.grey, expected.map);
        for (const int threads : {1, 2, 3}) {
            setThreadCount(threads);
            Patches found(size[0], size[1], 4);
            EdgeAwareFill fill;
            fill.fill(found.grey.view(), found.map);
            for (int y = 0; y < size[1]; ++y)
                for (int x = 0; x < size[0]; ++x) {
                    ASSERT_EQ(expected.map.disparity.at(x, y), found.map.disparity.at(x, y))
                        << x << ", " << y << ", " << threads << " threads";
                    ASSERT_EQ(expected.map.confidence.at(x, y), found.map.confidence.at(x, y));
                }
        }
    }
    setThreadCount(0);
}

TEST_P(EdgeAwareFillTest, ReachesTheEndOfTheLongestWay) {
    // Every step costs 257: the way does not fit the 16 bits of a distance.
    Image<std::uint8_t> grey(400, 3);
    DisparityMap map;
    map.resize(400, 3);
    map.disparity.fill(kInvalidDisparity);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 400; ++x) grey.at(x, y) = x % 2 ? 255 : 0;
    map.disparity.at(0, 1) = 320;
    EdgeAwareFill fill;
    fill.fill(grey.view(), map);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 400; ++x) ASSERT_EQ(320, map.disparity.at(x, y)) << x << ", " << y;
}

TEST(EdgeAwareFill, FillsUpToTheEdgeOfThePicture) {
    // A bright object in front of a dark wall; the hole spans the border between both.
    Image<std::uint8_t> grey(40, 10);
    DisparityMap map;
    map.resize(40, 10);
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 40; ++x) {
            grey.at(x, y) = x < 20 ? 200 : 40;
            map.disparity.at(x, y) = x < 10 ? 640 : x >= 36 ? 160 : kInvalidDisparity;
            map.confidence.at(x, y) = isDisparity(map.disparity.at(x, y)) ? 150 : 0;
        }
    map.disparity.at(38, 5) = kTooNearDisparity;
    map.confidence.at(38, 5) = 0;
    EdgeAwareFill fill;
    fill.fill(grey.view(), map);
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 40; ++x) {
            if (x == 38 && y == 5) {
                EXPECT_EQ(kTooNearDisparity, map.disparity.at(x, y));
                EXPECT_EQ(0, map.confidence.at(x, y));
                continue;
            }
            EXPECT_EQ(x < 20 ? 640 : 160, map.disparity.at(x, y)) << x << ", " << y;
            EXPECT_EQ(x < 10 || x >= 36 ? 150 : kFilledConfidence, map.confidence.at(x, y));
        }
}

TEST(EdgeAwareFill, LeavesAMapWithoutDisparitiesAsItIs) {
    Image<std::uint8_t> grey(8, 8);
    DisparityMap map;
    map.resize(8, 8);
    map.disparity.fill(kInvalidDisparity);
    EdgeAwareFill fill;
    fill.fill(grey.view(), map);
    EXPECT_EQ(kInvalidDisparity, map.disparity.at(3, 3));
    EXPECT_EQ(0, map.confidence.at(3, 3));
}

}  // namespace
}  // namespace kova::camera
