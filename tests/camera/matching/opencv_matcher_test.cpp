#include "camera/matching/opencv_matcher.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace kova::camera {
namespace {

constexpr int kWidth = 240, kHeight = 60, kShift = 12;

/// A textured plane at one disparity.
void makePair(Image<std::uint8_t>& left, Image<std::uint8_t>& right) {
    std::mt19937 random(5);
    left.resize(kWidth, kHeight);
    right.resize(kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const int noise = static_cast<int>(random() % 128);
            left.at(x, y) = static_cast<std::uint8_t>(x > 0 ? (left.at(x - 1, y) + noise + 64) / 2
                                                            : noise + 64);
        }
        for (int x = 0; x < kWidth; ++x)
            right.at(x, y) = x + kShift < kWidth ? left.at(x + kShift, y) : 128;
    }
}

double shareNear(const DisparityMap& map, double tolerance) {
    int right = 0, counted = 0;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 40; x < kWidth; ++x) {
            ++counted;
            const std::uint16_t d = map.disparity.at(x, y);
            right += isDisparity(d) && std::abs(d / double{kDisparityScale} - kShift) <= tolerance;
        }
    return static_cast<double>(right) / counted;
}

TEST(OpenCvMatcher, FindsAPlaneInEveryMode) {
    Image<std::uint8_t> left, right;
    makePair(left, right);
    const auto matcher = makeOpenCvMatcher();
    for (const WorkMode mode : {WorkMode::kFast, WorkMode::kMedium, WorkMode::kSlow}) {
        MatchParameters parameters;
        parameters.work_mode = mode;
        parameters.max_disparity = 32;
        DisparityMap map;
        ASSERT_TRUE(matcher->match(left.view(), right.view(), parameters, map).ok());
        ASSERT_EQ(kWidth, map.disparity.width());
        EXPECT_GT(shareNear(map, mode == WorkMode::kFast ? 1.0 : 0.5), 0.9);
        parameters.fill = true;
        ASSERT_TRUE(matcher->match(left.view(), right.view(), parameters, map).ok());
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                ASSERT_EQ(isDisparity(map.disparity.at(x, y)), map.confidence.at(x, y) > 0);
    }
}

TEST(OpenCvMatcher, ThresholdOnlyRemoves) {
    Image<std::uint8_t> left, right;
    makePair(left, right);
    const auto matcher = makeOpenCvMatcher();
    MatchParameters parameters;
    parameters.work_mode = WorkMode::kMedium;
    parameters.max_disparity = 32;
    int before = kWidth * kHeight + 1;
    for (const float threshold : {0.0F, 0.5F, 0.9F, 0.99F}) {
        parameters.confidence_threshold = threshold;
        DisparityMap map;
        ASSERT_TRUE(matcher->match(left.view(), right.view(), parameters, map).ok());
        int count = 0;
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) count += isDisparity(map.disparity.at(x, y));
        EXPECT_LE(count, before);
        before = count;
    }
    EXPECT_GT(before, 0);
}

TEST(OpenCvMatcher, SmallPicturesAndBadParametersAreHarmless) {
    const auto matcher = makeOpenCvMatcher();
    DisparityMap map;
    for (const int size : {1, 2, 3, 5, 17}) {
        Image<std::uint8_t> tiny(size, size);
        for (const WorkMode mode : {WorkMode::kFast, WorkMode::kSlow}) {
            MatchParameters parameters;
            parameters.work_mode = mode;
            parameters.fill = true;
            ASSERT_TRUE(matcher->match(tiny.view(), tiny.view(), parameters, map).ok());
            EXPECT_EQ(kInvalidDisparity, map.disparity.at(size - 1, size - 1));
        }
    }
    Image<std::uint8_t> a(8, 8), b(8, 9);
    EXPECT_EQ(ErrorCode::kInvalidArgument, matcher->match(a.view(), b.view(), {}, map).code());
    MatchParameters bad;
    bad.max_disparity = 8;
    EXPECT_EQ(ErrorCode::kInvalidArgument, bad.check().code());
    bad = {};
    bad.confidence_threshold = 1.0F;
    EXPECT_EQ(ErrorCode::kInvalidArgument, bad.check().code());
}

}  // namespace
}  // namespace kova::camera
