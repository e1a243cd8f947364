#include <gtest/gtest.h>
#include <hwy/tests/hwy_gtest.h>

#include <random>

#include "camera/base/parallel.h"
#include "camera/matching/borrow.h"
#include "camera/matching/confidence.h"
#include "camera/matching/eye_check.h"
#include "camera/matching/half_size.h"
#include "camera/matching/median.h"
#include "camera/matching/narrow.h"
#include "camera/matching/planes.h"
#include "camera/matching/speckles.h"
#include "camera/matching/too_near.h"
#include "camera/matching/upscale.h"

namespace kova::camera {
namespace {

constexpr int kSizes[][2] = {{1, 1},  {2, 3},   {5, 5},     {4, 9},
                             {33, 7}, {70, 66}, {131, 130}, {600, 9}};

/// Smooth patches with holes and noise.
Image<std::uint16_t> patchyMap(int width, int height, unsigned seed) {
    std::mt19937 random(seed);
    Image<std::uint16_t> map(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const unsigned r = random() % 20;
            map.at(x, y) = r == 0   ? kInvalidDisparity
                           : r == 1 ? kTooNearDisparity
                           : r == 2 ? static_cast<std::uint16_t>(random() % 2000)
                                    : static_cast<std::uint16_t>(x / 9 * 40 + random() % 24);
        }
    return map;
}

class StagesTest : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(StagesTest);

TEST_P(StagesTest, MedianEqualsItsReference) {
    for (const auto& size : kSizes) {
        const Image<std::uint16_t> in = patchyMap(size[0], size[1], 4);
        Image<std::uint16_t> out(size[0], size[1]);
        out.fill(0x1234);
        medianRows(in.view(), out.view(), 0, size[1]);
        for (int y = 0; y < size[1]; ++y)
            for (int x = 0; x < size[0]; ++x)
                ASSERT_EQ(medianReference(in.view(), x, y), out.at(x, y)) << x << ", " << y;
    }
}

TEST_P(StagesTest, ConfidenceEqualsItsReference) {
    std::mt19937 random(8);
    for (const auto& size : kSizes) {
        const Image<std::uint16_t> map = patchyMap(size[0], size[1], 5);
        sgm::Winners winners;
        winners.resize(size[0], size[1]);
        for (int y = 0; y < size[1]; ++y)
            for (int x = 0; x < size[0]; ++x) {
                winners.best.at(x, y) = static_cast<std::uint8_t>(random() % 200);
                winners.second.at(x, y) =
                    static_cast<std::uint8_t>(winners.best.at(x, y) + random() % 56);
            }
        Image<std::uint8_t> out(size[0], size[1]);
        rateRows(map.view(), winners, kFullConfidence, out.view(), 0, size[1]);
        for (int y = 0; y < size[1]; ++y)
            for (int x = 0; x < size[0]; ++x) {
                ASSERT_EQ(rateReference(map.view(), winners, kFullConfidence, x, y), out.at(x, y))
                    << x << ", " << y;
                ASSERT_EQ(isDisparity(map.at(x, y)), out.at(x, y) > 0);
            }
    }
}

TEST_P(StagesTest, HalfSizeIsTheMeanOfFour) {
    std::mt19937 random(6);
    for (const auto& size : kSizes) {
        Image<std::uint8_t> in(size[0], size[1]);
        for (int y = 0; y < size[1]; ++y)
            for (int x = 0; x < size[0]; ++x) in.at(x, y) = static_cast<std::uint8_t>(random());
        Image<std::uint8_t> half(halfSize(size[0]), halfSize(size[1]));
        halveRows(in.view(), half.view(), 0, half.height());
        for (int y = 0; y < half.height(); ++y)
            for (int x = 0; x < half.width(); ++x) {
                int sum = 0;
                for (int j = 0; j < 2; ++j)
                    for (int i = 0; i < 2; ++i)
                        sum += in.at(std::min(2 * x + i, size[0] - 1),
                                     std::min(2 * y + j, size[1] - 1));
                ASSERT_EQ((sum + 2) / 4, half.at(x, y)) << x << ", " << y;
            }
    }
}

int meanUp(int a, int b) {
    return (a + b + 1) / 2;
}

int mean121(int a, int b, int c) {
    return meanUp(meanUp(a, c), b);
}

/// Of the values of at(-2) to at(2).
template <typename At>
int meanAround(bool wide, const At& at) {
    const int mean = mean121(at(-1), at(0), at(1));
    return wide ? mean121(mean121(at(-2), at(-1), at(0)), mean, mean121(at(0), at(1), at(2)))
                : mean;
}

TEST_P(StagesTest, SoftensTowardsTheMeanAround) {
    std::mt19937 random(9);
    for (const auto& size : kSizes) {
        const int width = size[0], height = size[1];
        Image<std::uint8_t> in(width, height);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) in.at(x, y) = static_cast<std::uint8_t>(random());
        const auto mean = [&](bool wide, int x, int y) {
            return meanAround(wide, [&](int i) {
                const int u = std::clamp(x + i, 0, width - 1);
                return meanAround(
                    wide, [&](int j) { return int{in.at(u, std::clamp(y + j, 0, height - 1))}; });
            });
        };
        for (const sgm::Denoising& denoising : {sgm::Denoising{0}, sgm::Denoising{7},
                                                sgm::Denoising{1000}, sgm::Denoising{1000, true}}) {
            const int limit = denoising.limit;
            sgm::EyePlanes eye;
            eye.resize(width, height, 1);
            for (int i = 0; i < stripsFor(height); ++i) eye.compute(in.view(), denoising, i);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x) {
                    const int here = in.at(x, y);
                    ASSERT_EQ(std::clamp(mean(denoising.wide, x, y), here - limit, here + limit),
                              eye.grey(y)[x])
                        << x << ", " << y << " of " << width << "x" << height << ", " << limit;
                }
        }
    }
}

/// Three parts of one and one of the other, if they agree; rounding 2 rounds halves up, 1 down.
int blended(int near, int far, int rounding) {
    return std::abs(near - far) <= kDisparityScale &&
                   isDisparity(static_cast<std::uint16_t>(near)) &&
                   isDisparity(static_cast<std::uint16_t>(far))
               ? near + static_cast<int>(std::floor((far - near + rounding) / 4.0))
               : near;
}

TEST_P(StagesTest, UpscalingDoublesAndInterpolates) {
    for (const auto& size : kSizes) {
        const int width = size[0], height = size[1];
        const int half_width = halfSize(width), half_height = halfSize(height);
        const Image<std::uint16_t> half = patchyMap(half_width, half_height, 7);
        Image<std::uint16_t> full(width, height);
        upscaleDisparityRows(half.view(), full.view(), 0, height);
        const auto other = [](int i, int end) {
            return std::clamp(i / 2 + (i % 2 == 0 ? -1 : 1), 0, end - 1);
        };
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const int v = other(y, half_height), u = other(x, half_width);
                const int here = blended(half.at(x / 2, y / 2), half.at(x / 2, v), 2);
                const int there = blended(half.at(u, y / 2), half.at(u, v), 2);
                const int mixed = blended(here, there, 1);
                ASSERT_EQ(isDisparity(static_cast<std::uint16_t>(mixed)) ? 2 * mixed : mixed,
                          full.at(x, y))
                    << x << ", " << y;
            }
    }
}

TEST_P(StagesTest, UpscalingMovesNothingInTheMean) {
    constexpr int kWidth = 200, kHeight = 100;
    Image<std::uint16_t> half(kWidth, kHeight), full(2 * kWidth, 2 * kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            half.at(x, y) = static_cast<std::uint16_t>(100 + (x * 5 + y * 7) % 16);
    upscaleDisparityRows(half.view(), full.view(), 0, 2 * kHeight);
    double sum = 0;
    for (int y = 0; y < 2 * kHeight; ++y)
        for (int x = 0; x < 2 * kWidth; ++x) sum += full.at(x, y) - 2.0 * half.at(x / 2, y / 2);
    EXPECT_NEAR(0, sum / (4 * kWidth * kHeight), 0.05);
}

TEST(Borrow, CompletesHolesThatHalfTheSizeIsSureOf) {
    constexpr int kWidth = 40, kHeight = 21;  // half of it: 20 x 11
    constexpr std::uint16_t kPlane = 160;     // 10 px
    DisparityMap full, half;
    full.resize(kWidth, kHeight);
    half.resize(halfSize(kWidth), halfSize(kHeight));
    full.disparity.fill(kPlane);
    full.confidence.fill(150);
    half.disparity.fill(kPlane / 2);
    half.confidence.fill(kLeastBorrowed + 40);
    const auto hole = [&](int x0, int x1, int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x) {
                full.disparity.at(x, y) = kInvalidDisparity;
                full.confidence.at(x, y) = 0;
            }
    };
    hole(0, 14, 2, 8);     // left of column 10 it has no partner
    hole(20, 22, 10, 12);  // unsure there
    hole(30, 36, 10, 12);  // beside another surface
    hole(24, 30, 19, 21);  // at the end
    half.confidence.at(10, 5) = kLeastBorrowed - 1;
    full.disparity.at(37, 10) = kPlane + kOtherSurface + 1;
    const DisparityMap before = {full.disparity.clone(), full.confidence.clone()};
    chooseBorrowed(before.disparity.view(), half, 0, halfSize(kHeight));
    std::vector<std::uint16_t> upscaled(kWidth);
    borrowRows(half, full, upscaled.data(), 0, kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const bool was = isDisparity(before.disparity.at(x, y));
            const bool is = isDisparity(full.disparity.at(x, y));
            const bool refused = (x < 10) || (y >= 10 && y < 12 && (x < 22 || x >= 34));
            ASSERT_EQ(was || !refused, is) << x << ", " << y;
            if (was) {
                ASSERT_EQ(before.disparity.at(x, y), full.disparity.at(x, y));
                ASSERT_EQ(before.confidence.at(x, y), full.confidence.at(x, y));
            } else if (is) {
                ASSERT_EQ(kPlane, full.disparity.at(x, y));
                ASSERT_EQ((kLeastBorrowed + 40) * kBorrowedTrust / 64, full.confidence.at(x, y));
            } else {
                ASSERT_EQ(0, full.confidence.at(x, y));
            }
        }
}

/// Flood fill, pixel by pixel.
void removeSpecklesSlowly(Image<std::uint16_t>& map, int max_pixels, int max_step) {
    Image<std::uint8_t> seen(map.width(), map.height());
    for (int y = 0; y < map.height(); ++y)
        for (int x = 0; x < map.width(); ++x) {
            if (seen.at(x, y) || !isDisparity(map.at(x, y)))
                continue;
            std::vector<std::pair<int, int>> group{{x, y}};
            seen.at(x, y) = 1;
            for (std::size_t i = 0; i < group.size(); ++i) {
                const auto [px, py] = group[i];
                constexpr int kSteps[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
                for (const auto& step : kSteps) {
                    const int u = px + step[0], v = py + step[1];
                    if (u < 0 || v < 0 || u >= map.width() || v >= map.height() || seen.at(u, v) ||
                        !isDisparity(map.at(u, v)) ||
                        std::abs(map.at(u, v) - map.at(px, py)) > max_step)
                        continue;
                    seen.at(u, v) = 1;
                    group.push_back({u, v});
                }
            }
            if (static_cast<int>(group.size()) <= max_pixels)
                for (const auto& [px, py] : group) map.at(px, py) = kInvalidDisparity;
        }
}

TEST(SpeckleFilter, EqualsAFloodFillForEveryThreadCount) {
    for (const auto& size : kSizes) {
        Image<std::uint16_t> expected = patchyMap(size[0], size[1], 9);
        removeSpecklesSlowly(expected, 20, 20);
        for (const int threads : {1, 2, 3}) {
            setThreadCount(threads);
            Image<std::uint16_t> found = patchyMap(size[0], size[1], 9);
            SpeckleFilter filter;
            filter.filter(found.view(), 20, 20);
            for (int y = 0; y < size[1]; ++y)
                for (int x = 0; x < size[0]; ++x)
                    ASSERT_EQ(expected.at(x, y), found.at(x, y)) << x << ", " << y;
        }
    }
    setThreadCount(0);
}

TEST(SpeckleFilter, RemovesGroupsUpToTheSizeAndKeepsLargerOnes) {
    Image<std::uint16_t> map(30, 9);
    map.fill(kInvalidDisparity);
    for (int y = 2; y < 6; ++y)
        for (int x = 2; x < 7; ++x) map.at(x, y) = map.at(x + 10, y) = 160;
    map.at(17, 3) = 170;  // the second group has 21 pixels
    SpeckleFilter filter;
    filter.filter(map.view(), 20, 16);
    EXPECT_EQ(kInvalidDisparity, map.at(4, 4));
    EXPECT_EQ(160, map.at(14, 4));
    EXPECT_EQ(170, map.at(17, 3));
}

/// For every pixel of the right picture the first of the cheapest pixels that claim it.
void checkEyesSlowly(std::vector<std::uint16_t>& disparity, const std::vector<std::uint8_t>& cost,
                     int max_difference) {
    const int width = static_cast<int>(disparity.size());
    const std::vector<std::uint16_t> before = disparity;
    const auto partner = [&](int x) {
        const int p = x - (before[x] + kDisparityScale / 2) / kDisparityScale;
        return isDisparity(before[x]) && p >= 0 ? p : -1;
    };
    for (int x = 0; x < width; ++x) {
        int holder = x;
        for (int u = width - 1; u >= 0; --u)
            if (partner(u) == partner(x) && cost[u] <= cost[holder] &&
                (cost[u] < cost[holder] || u < holder))
                holder = u;
        if (isDisparity(before[x]) &&
            (partner(x) < 0 || std::abs(before[holder] - before[x]) > max_difference))
            disparity[x] = kInvalidDisparity;
    }
}

TEST_P(StagesTest, EyeCheckEqualsItsDefinition) {
    std::mt19937 random(14);
    for (const int width : {1, 3, 17, 64, 333}) {
        const Image<std::uint16_t> map = patchyMap(width, 40, 15);
        for (int y = 0; y < 40; ++y) {
            std::vector<std::uint16_t> found(map.row(y), map.row(y) + width);
            std::vector<std::uint8_t> cost(found.size());
            for (std::uint8_t& c : cost) c = static_cast<std::uint8_t>(random() % 6);
            std::vector<std::uint16_t> expected = found;
            checkEyesSlowly(expected, cost, 20);
            std::vector<std::int32_t> held(found.size() + kClaimsBehind);
            checkEyes(found.data(), cost.data(), width, 20, held.data());
            ASSERT_EQ(expected, found) << width << ", row " << y;
        }
    }
}

TEST(EyeCheck, KeepsTheCheapestClaimAndWhatIsLikeIt) {
    std::uint16_t disparity[] = {16, 16, kInvalidDisparity, 32, 80, 17, 32};
    const std::uint8_t cost[] = {0, 9, 0, 5, 3, 4, 2};
    std::int32_t claims[7 + kClaimsBehind];
    checkEyes(disparity, cost, 7, 20, claims);
    EXPECT_EQ(kInvalidDisparity, disparity[0]) << "its partner is outside";
    EXPECT_EQ(16, disparity[1]) << "alone at 0";
    EXPECT_EQ(32, disparity[3]) << "alone at 1";
    EXPECT_EQ(32, disparity[6]) << "the cheapest at 4";
    EXPECT_EQ(17, disparity[5]) << "dearer, but much the same";
}

TEST(EyeCheck, RejectsTheDearerOfTwoDifferentClaims) {
    // Pixels 5 and 8 both claim pixel 4 of the right picture.
    std::uint16_t disparity[9];
    std::fill(disparity, disparity + 9, kInvalidDisparity);
    disparity[5] = 16;
    disparity[8] = 64;
    const std::uint8_t cost[9] = {0, 0, 0, 0, 0, 30, 0, 0, 10};
    std::int32_t claims[9 + kClaimsBehind];
    checkEyes(disparity, cost, 9, 20, claims);
    EXPECT_EQ(kInvalidDisparity, disparity[5]);
    EXPECT_EQ(64, disparity[8]);
}

TEST(EyeCheck, KeepsTheFirstOfTwoEqualClaims) {
    std::uint16_t disparity[9];
    std::fill(disparity, disparity + 9, kInvalidDisparity);
    disparity[5] = 16;
    disparity[8] = 64;
    const std::uint8_t cost[9] = {0, 0, 0, 0, 0, 10, 0, 0, 10};
    std::int32_t claims[9 + kClaimsBehind];
    checkEyes(disparity, cost, 9, 20, claims);
    EXPECT_EQ(16, disparity[5]);
    EXPECT_EQ(kInvalidDisparity, disparity[8]);
}

TEST(NarrowSearch, TakesWhatWasFoundAroundACellAndAllWhereTooMuchFailed) {
    Image<std::uint16_t> half(96, 32);
    half.fill(20 * kDisparityScale);
    for (int y = 0; y < 32; ++y)
        for (int x = 64; x < 96; ++x) half.at(x, y) = x % 3 ? kInvalidDisparity : 320;
    sgm::Search search{0, 128, std::vector<sgm::LevelRange>(3)};
    sgm::narrowSearch(half.view(), 192, 64, 4, search);
    EXPECT_EQ(40 - 4, search.ranges[0].begin);
    EXPECT_EQ(40 + 4 + 2, search.ranges[0].end);
    EXPECT_EQ(search.ranges[0].end, search.ranges[1].end);
    EXPECT_EQ(0, search.ranges[2].begin);
    EXPECT_EQ(128, search.ranges[2].end);
}

TEST(NarrowSearch, DoesNotCountWhatTheRightEyeDoesNotSee) {
    // Both cells lack more than half, but only left of the first disparity of each row.
    Image<std::uint16_t> half(64, 32);
    half.fill(40 * kDisparityScale);
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 52; ++x) half.at(x, y) = kInvalidDisparity;
    sgm::Search search{0, 128, std::vector<sgm::LevelRange>(2)};
    sgm::narrowSearch(half.view(), 128, 64, 3, search);
    EXPECT_EQ(128, search.ranges[0].size()) << "nothing is known of this cell";
    EXPECT_EQ(80 - 3, search.ranges[1].begin);
    EXPECT_EQ(80 + 3 + 2, search.ranges[1].end);
}

TEST(TooNear, MarksWhatTheSmallSearchFoundBeyondTheRange) {
    Image<std::uint16_t> quarter(12, 10);
    quarter.fill(4 * kDisparityScale);
    for (int y = 2; y < 7; ++y)
        for (int x = 3; x < 8; ++x) quarter.at(x, y) = 20 * kDisparityScale;
    quarter.at(10, 8) = 20 * kDisparityScale;  // alone: a wrong match
    DisparityMap map;
    map.resize(47, 39);
    map.disparity.fill(300);
    map.confidence.fill(120);
    TooNear too_near;
    too_near.find(quarter.view(), 4, 64);
    too_near.mark(map, 0, 39);
    for (int y = 0; y < 39; ++y)
        for (int x = 0; x < 47; ++x) {
            const int u = x / 4, v = y / 4;
            const bool corner = (u == 3 || u == 7) && (v == 2 || v == 6);
            const bool inside = u >= 3 && u < 8 && v >= 2 && v < 7 && !corner;
            ASSERT_EQ(inside ? kTooNearDisparity : 300, map.disparity.at(x, y)) << x << ", " << y;
            ASSERT_EQ(inside ? 0 : 120, map.confidence.at(x, y));
        }
}

TEST(TooNear, RejectsWhatWasMatchedWithItsPlaceInTheRightPicture) {
    // Small pixels 20 to 29 are too near and lie at 0 to 9 of the right picture; what has more than
    // one neighbour inside counts: 1 to 8.
    Image<std::uint16_t> quarter(30, 12);
    quarter.fill(kInvalidDisparity);
    for (int y = 0; y < 12; ++y)
        for (int x = 20; x < 30; ++x) quarter.at(x, y) = 20 * kDisparityScale;
    DisparityMap map;
    map.resize(120, 48);
    map.disparity.fill(10 * kDisparityScale);
    map.confidence.fill(120);
    TooNear too_near;
    too_near.find(quarter.view(), 4, 64);
    too_near.mark(map, 0, 48);
    for (int x = 0; x < 120; ++x) {
        const int right = (x - 10) / 4;
        const bool hidden = x >= 10 && right >= 1 && right <= 9;
        ASSERT_EQ(x >= 80  ? kTooNearDisparity
                  : hidden ? kInvalidDisparity
                           : 10 * kDisparityScale,
                  map.disparity.at(x, 24))
            << x;
    }
    EXPECT_EQ(10 * kDisparityScale, map.disparity.at(5, 24)) << "its partner is outside";
}

TEST(TooNear, ForgetsTheFrameBefore) {
    Image<std::uint16_t> quarter(8, 8);
    quarter.fill(30 * kDisparityScale);
    DisparityMap map;
    map.resize(32, 32);
    map.disparity.fill(160);
    TooNear too_near;
    too_near.find(quarter.view(), 4, 64);
    quarter.fill(3 * kDisparityScale);
    too_near.find(quarter.view(), 4, 64);
    too_near.mark(map, 0, 32);
    EXPECT_EQ(160, map.disparity.at(16, 16));
}

TEST(Confidence, TablesAscendWithinTheirBounds) {
    for (const ConfidenceTable* table : {&kFullConfidence, &kHalfConfidence}) {
        EXPECT_TRUE(std::is_sorted(table->begin(), table->end()));
        EXPECT_GE(table->front(), 1);
        EXPECT_LE(table->back(), kConfidenceScale);
        EXPECT_LT(table->front(), table->back());
    }
}

TEST(Confidence, ScoreGrowsWithTheMarginAndFallsWithTheRoughness) {
    EXPECT_EQ(0, confidenceScore(kMaxRoughness, 0));
    EXPECT_EQ(255, confidenceScore(0, kMaxMargin));
    EXPECT_LT(confidenceScore(100, 10), confidenceScore(50, 10));
    EXPECT_LT(confidenceScore(100, 10), confidenceScore(100, 11));
}

}  // namespace
}  // namespace kova::camera
