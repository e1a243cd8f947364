#include "camera/matching/sgm_matcher.h"

#include <gtest/gtest.h>
#include <hwy/tests/hwy_gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <random>

#include "camera/base/parallel.h"
#include "tests/camera/matching/textured_pair.h"

namespace {
std::atomic<long> g_allocations{0};

void* counted(std::size_t bytes, std::size_t alignment) {
    ++g_allocations;
    void* p = std::aligned_alloc(alignment, (bytes + alignment - 1) / alignment * alignment);
    if (!p)
        throw std::bad_alloc();
    return p;
}
}  // namespace

void* operator new(std::size_t bytes) {
    return counted(bytes, 16);
}
void* operator new[](std::size_t bytes) {
    return counted(bytes, 16);
}
void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return counted(bytes, static_cast<std::size_t>(alignment));
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}

namespace kova::camera {
namespace {

constexpr WorkMode kModes[] = {WorkMode::kFast, WorkMode::kMedium, WorkMode::kSlow};

MatchParameters parametersFor(WorkMode mode, int levels) {
    MatchParameters parameters;
    parameters.work_mode = mode;
    parameters.max_disparity = levels;
    return parameters;
}

bool equal(const DisparityMap& a, const DisparityMap& b) {
    for (int y = 0; y < a.disparity.height(); ++y)
        for (int x = 0; x < a.disparity.width(); ++x)
            if (a.disparity.at(x, y) != b.disparity.at(x, y) ||
                a.confidence.at(x, y) != b.confidence.at(x, y))
                return false;
    return true;
}

class SgmMatcherTest : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(SgmMatcherTest);

TEST_P(SgmMatcherTest, GivesTheSameBytesForEveryTargetAndThreadCount) {
    const test::TexturedPair pair(217, 139, 21, 9);
    for (const WorkMode mode : kModes) {
        MatchParameters parameters = parametersFor(mode, 48);
        parameters.fill = mode == WorkMode::kSlow;
        parameters.borrow = true;
        DisparityMap expected;
        {
            // The reference run takes whatever target is best.
            hwy::SetSupportedTargetsForTest(0);
            setThreadCount(1);
            ASSERT_TRUE(makeSgmMatcher()
                            ->match(pair.left.view(), pair.right.view(), parameters, expected)
                            .ok());
            hwy::SetSupportedTargetsForTest(GetParam());
        }
        for (const int threads : {1, 2, 3}) {
            setThreadCount(threads);
            DisparityMap found;
            ASSERT_TRUE(makeSgmMatcher()
                            ->match(pair.left.view(), pair.right.view(), parameters, found)
                            .ok());
            EXPECT_TRUE(equal(expected, found)) << threads << " threads";
        }
    }
    setThreadCount(0);
}

TEST(SgmMatcher, FindsTwoPlanesInEveryMode) {
    const test::TexturedPair pair(400, 200, 30, 12);
    const auto matcher = makeSgmMatcher();
    for (const WorkMode mode : kModes) {
        DisparityMap map;
        ASSERT_TRUE(
            matcher->match(pair.left.view(), pair.right.view(), parametersFor(mode, 64), map).ok());
        int right = 0, wrong = 0, counted = 0;
        for (int y = 0; y < 200; ++y)
            for (int x = 40; x < 400; ++x) {
                if (std::abs(x - 200) < 24)
                    continue;  // where the planes meet
                ++counted;
                const std::uint16_t d = map.disparity.at(x, y);
                if (!isDisparity(d))
                    continue;
                const double error = d / double(kDisparityScale) - pair.truth(x, y);
                (std::abs(error) <= (mode == WorkMode::kFast ? 1.0 : 0.5) ? right : wrong) += 1;
            }
        EXPECT_GT(right, 0.97 * counted) << static_cast<int>(mode);
        EXPECT_LT(wrong, 0.005 * counted) << static_cast<int>(mode);
    }
}

/// A picture of `times` the size, interpolated, with a part of its contrast and with noise.
Image<std::uint8_t> enlarged(const Image<std::uint8_t>& small, int times, double contrast,
                             int noise_levels, unsigned seed) {
    std::mt19937 random(seed);
    Image<std::uint8_t> out(times * small.width(), times * small.height());
    for (int y = 0; y < out.height(); ++y)
        for (int x = 0; x < out.width(); ++x) {
            const int u = x / times, v = y / times;
            const int u1 = std::min(u + 1, small.width() - 1);
            const int v1 = std::min(v + 1, small.height() - 1);
            const double a = (x % times) / double(times), b = (y % times) / double(times);
            const double value = (1 - b) * ((1 - a) * small.at(u, v) + a * small.at(u1, v)) +
                                 b * ((1 - a) * small.at(u, v1) + a * small.at(u1, v1));
            const int noise = static_cast<int>(random() % (2 * noise_levels + 1)) - noise_levels;
            out.at(x, y) = static_cast<std::uint8_t>(
                std::clamp(120 + contrast * (value - 120) + noise, 0.0, 255.0));
        }
    return out;
}

Image<std::uint8_t> coarseAndNoisy(const Image<std::uint8_t>& small, unsigned seed) {
    return enlarged(small, 4, 0.2, 10, seed);
}

/// Share of the pixels of an enlarged pair, 480x240, that are measured right to 1 px; those around
/// the middle, where the planes meet, are left out.
double rightShare(const DisparityMap& map, const test::TexturedPair& small, int times,
                  int left_out) {
    int good = 0, counted = 0;
    for (int y = 0; y < 240; ++y)
        for (int x = 40; x < 480; ++x) {
            if (std::abs(x - 240) < left_out)
                continue;
            ++counted;
            const std::uint16_t d = map.disparity.at(x, y);
            good += isDisparity(d) && std::abs(d / double(kDisparityScale) -
                                               times * small.truth(x / times, y / times)) <= 1;
        }
    return good / double(counted);
}

TEST(SgmMatcher, FindsThemInNoise) {
    const test::TexturedPair small(120, 60, 7, 3);
    const auto left = coarseAndNoisy(small.left, 1), right = coarseAndNoisy(small.right, 2);
    const auto matcher = makeSgmMatcher();
    for (const WorkMode mode : kModes) {
        DisparityMap map;
        ASSERT_TRUE(matcher->match(left.view(), right.view(), parametersFor(mode, 64), map).ok());
        EXPECT_GT(rightShare(map, small, 4, 28), mode == WorkMode::kFast ? 0.9 : 0.75)
            << static_cast<int>(mode);
    }
}

TEST(SgmMatcher, FindsThemWhereNoiseDrownsTheTexture) {
    // Neighbouring pixels differ by noise alone; what is farther apart differs by more.
    constexpr int kTimes = 12;
    const test::TexturedPair small(40, 20, 3, 1);
    const auto matcher = makeSgmMatcher();
    for (const int noise : {1, 40}) {
        const auto left = enlarged(small.left, kTimes, 0.5, noise, 1),
                   right = enlarged(small.right, kTimes, 0.5, noise, 2);
        for (const WorkMode mode : kModes) {
            DisparityMap map;
            ASSERT_TRUE(
                matcher->match(left.view(), right.view(), parametersFor(mode, 64), map).ok());
            EXPECT_EQ(noise > 1, map.noisy) << static_cast<int>(mode);
            // With neighbours compared 0.44 and 0.1 of them would be.
            const double least = noise == 1 ? 0.9 : mode == WorkMode::kFast ? 0.7 : 0.3;
            EXPECT_GT(rightShare(map, small, kTimes, 40), least)
                << noise << ", " << static_cast<int>(mode);
        }
    }
}

TEST(SgmMatcher, TakesEverySizeAndRange) {
    constexpr int kSizes[][2] = {{1, 1}, {1, 90}, {90, 1}, {2, 2}, {63, 65}, {128, 64}, {129, 67}};
    const auto matcher = makeSgmMatcher();
    for (const auto& size : kSizes) {
        const test::TexturedPair pair(size[0], size[1], 6, 3);
        for (const WorkMode mode : kModes) {
            for (const int levels : {16, 33, 320}) {
                MatchParameters parameters = parametersFor(mode, levels);
                parameters.fill = true;
                parameters.borrow = true;
                DisparityMap map;
                ASSERT_TRUE(
                    matcher->match(pair.left.view(), pair.right.view(), parameters, map).ok());
                ASSERT_EQ(size[0], map.disparity.width());
                for (int y = 0; y < size[1]; ++y)
                    for (int x = 0; x < size[0]; ++x) {
                        const std::uint16_t d = map.disparity.at(x, y);
                        ASSERT_TRUE(!isDisparity(d) || d < levels * kDisparityScale);
                        ASSERT_EQ(isDisparity(d), map.confidence.at(x, y) > 0);
                    }
            }
        }
    }
}

TEST(SgmMatcher, SearchesOnlyTheRangeAskedFor) {
    const test::TexturedPair pair(300, 120, 40, 12);
    const auto matcher = makeSgmMatcher();
    for (const WorkMode mode : kModes) {
        MatchParameters parameters = parametersFor(mode, 60);
        parameters.min_disparity = 20;
        DisparityMap map;
        ASSERT_TRUE(matcher->match(pair.left.view(), pair.right.view(), parameters, map).ok());
        int near = 0;
        for (int y = 0; y < 120; ++y)
            for (int x = 0; x < 300; ++x) {
                const std::uint16_t d = map.disparity.at(x, y);
                if (!isDisparity(d))
                    continue;
                ASSERT_GE(d, 20 * kDisparityScale);
                ASSERT_LT(d, 60 * kDisparityScale);
                near += x >= 60 && x < 140 && std::abs(d - 40 * kDisparityScale) <= 16;
            }
        EXPECT_GT(near, 0.9 * 80 * 120);
    }
}

TEST(SgmMatcher, TellsWhatIsTooNearFromWhatItMeasures) {
    // The left half is nearer than the search can see, by up to four times; the right half is not.
    // Of what is nearest the right eye sees only a part; the rest has no disparity.
    for (const int near : {50, 110}) {
        const test::TexturedPair pair(400, 200, near, 12);
        const auto matcher = makeSgmMatcher();
        for (const WorkMode mode : kModes) {
            DisparityMap map;
            ASSERT_TRUE(
                matcher->match(pair.left.view(), pair.right.view(), parametersFor(mode, 32), map)
                    .ok());
            int too_near = 0, measured = 0, far_too_near = 0;
            for (int y = 0; y < 200; ++y) {
                for (int x = 0; x < 184; ++x) {
                    too_near += x >= near + 10 && map.disparity.at(x, y) == kTooNearDisparity;
                    measured += isDisparity(map.disparity.at(x, y));
                }
                for (int x = 216; x < 400; ++x)
                    far_too_near += map.disparity.at(x, y) == kTooNearDisparity;
            }
            EXPECT_GT(too_near, 0.9 * (174 - near) * 200) << near << ", " << static_cast<int>(mode);
            EXPECT_LT(measured, 0.05 * 184 * 200) << near << ", " << static_cast<int>(mode);
            EXPECT_EQ(0, far_too_near) << near << ", " << static_cast<int>(mode);
        }
    }
}

TEST(SgmMatcher, WhatIsTooNearIsNotTakenForNoise) {
    // The left half is nearer than a search of 32 px can see, so that its best matches are as bad
    // as those of noise. The right half must not be softened and doubted for it: what is said of it
    // stays nearly what a search says that sees everything.
    const test::TexturedPair small(60, 30, 14, 2);
    const auto left = enlarged(small.left, 8, 1, 1, 1), right = enlarged(small.right, 8, 1, 1, 2);
    const auto matcher = makeSgmMatcher();
    for (const WorkMode mode : kModes) {
        double sure[2] = {}, measured[2] = {};
        for (const int i : {0, 1}) {
            const MatchParameters parameters = parametersFor(mode, i == 0 ? 128 : 32);
            DisparityMap map;
            ASSERT_TRUE(matcher->match(left.view(), right.view(), parameters, map).ok());
            for (int y = 0; y < 240; ++y)
                for (int x = 288; x < 480; ++x) {
                    measured[i] += isDisparity(map.disparity.at(x, y)) ? 1 : 0;
                    sure[i] += map.confidence.at(x, y);
                }
        }
        ASSERT_GT(measured[0], 0.9 * 192 * 240) << static_cast<int>(mode);
        EXPECT_GT(measured[1], 0.98 * measured[0]) << static_cast<int>(mode);
        EXPECT_GT(sure[1], 0.9 * sure[0]) << static_cast<int>(mode);
    }
}

TEST(SgmMatcher, ThresholdOnlyRemoves) {
    const test::TexturedPair pair(200, 100, 20, 8);
    const auto matcher = makeSgmMatcher();
    DisparityMap before;
    ASSERT_TRUE(matcher
                    ->match(pair.left.view(), pair.right.view(),
                            parametersFor(WorkMode::kMedium, 32), before)
                    .ok());
    for (const float threshold : {0.3F, 0.6F, 0.9F, 0.99F}) {
        MatchParameters parameters = parametersFor(WorkMode::kMedium, 32);
        parameters.confidence_threshold = threshold;
        DisparityMap map;
        ASSERT_TRUE(matcher->match(pair.left.view(), pair.right.view(), parameters, map).ok());
        for (int y = 0; y < 100; ++y)
            for (int x = 0; x < 200; ++x) {
                const bool kept = before.confidence.at(x, y) >= threshold * kConfidenceScale;
                ASSERT_EQ(kept ? before.disparity.at(x, y) : kInvalidDisparity,
                          map.disparity.at(x, y));
            }
    }
}

TEST(SgmMatcher, BorrowingOnlyAdds) {
    const test::TexturedPair small(120, 60, 7, 3);
    const auto left = coarseAndNoisy(small.left, 1), right = coarseAndNoisy(small.right, 2);
    const auto matcher = makeSgmMatcher();
    for (const WorkMode mode : {WorkMode::kMedium, WorkMode::kSlow}) {
        MatchParameters parameters = parametersFor(mode, 64);
        DisparityMap before, after;
        ASSERT_TRUE(matcher->match(left.view(), right.view(), parameters, before).ok());
        parameters.borrow = true;
        ASSERT_TRUE(matcher->match(left.view(), right.view(), parameters, after).ok());
        int added = 0;
        for (int y = 0; y < 240; ++y)
            for (int x = 0; x < 480; ++x) {
                if (!isDisparity(before.disparity.at(x, y))) {
                    added += isDisparity(after.disparity.at(x, y));
                    continue;
                }
                ASSERT_EQ(before.disparity.at(x, y), after.disparity.at(x, y));
                ASSERT_EQ(before.confidence.at(x, y), after.confidence.at(x, y));
            }
        EXPECT_GT(added, 240 * 480 / 50) << static_cast<int>(mode);
    }
}

TEST(SgmMatcher, RefusesDifferentSizesAndImpossibleParameters) {
    const test::TexturedPair a(40, 20, 4, 2), b(41, 20, 4, 2);
    const auto matcher = makeSgmMatcher();
    DisparityMap map;
    MatchParameters parameters = parametersFor(WorkMode::kSlow, 32);
    EXPECT_EQ(ErrorCode::kInvalidArgument,
              matcher->match(a.left.view(), b.right.view(), parameters, map).code());
    parameters.max_disparity = 8;
    EXPECT_EQ(ErrorCode::kInvalidArgument,
              matcher->match(a.left.view(), a.right.view(), parameters, map).code());
    parameters.min_disparity = 4000;
    parameters.max_disparity = 4016;
    EXPECT_EQ(ErrorCode::kInvalidArgument,
              matcher->match(a.left.view(), a.right.view(), parameters, map).code());
}

TEST(SgmMatcher, AllocatesNothingOncePrepared) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "plain threads stand in for oneTBB's in this build, and are allocated";
#endif
    const test::TexturedPair pair(320, 200, 20, 8);
    const auto matcher = makeSgmMatcher();
    DisparityMap map;
    const auto matchAll = [&] {
        for (const WorkMode mode : kModes) {
            MatchParameters parameters = parametersFor(mode, 64);
            parameters.fill = true;
            parameters.borrow = true;
            parameters.confidence_threshold = 0.5F;
            ASSERT_TRUE(matcher->match(pair.left.view(), pair.right.view(), parameters, map).ok());
        }
    };
    matchAll();
    matchAll();
    const long before = g_allocations;
    ASSERT_GT(before, 0);
    for (int i = 0; i < 3; ++i) matchAll();
    EXPECT_EQ(before, g_allocations);
}

}  // namespace
}  // namespace kova::camera
