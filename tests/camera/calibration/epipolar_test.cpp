#include "camera/calibration/epipolar.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace kova::camera {
namespace {

using testing::HasSubstr;

constexpr int kWidth = 480, kHeight = 320;

/// Blobs of many sizes on two planes: disparity 12 above, 24 below the middle.
struct Scene {
    struct Blob {
        double x, y, size, height;
    };
    std::vector<Blob> blobs;

    explicit Scene(unsigned seed, int count = 700) {
        std::mt19937 random(seed);
        const auto unit = [&] { return static_cast<double>(random() % 100000) / 100000.0; };
        for (int i = 0; i < count; ++i)
            blobs.push_back({unit() * kWidth * 1.2, unit() * kHeight, 1.5 + 5 * unit() * unit(),
                             120 * (unit() - 0.5)});
    }

    Image<std::uint8_t> seen(double near, double far, double dy) const {
        std::vector<double> sum(static_cast<std::size_t>(kWidth) * kHeight, 128);
        for (const Blob& b : blobs) {
            const double bx = b.x - (b.y > kHeight / 2.0 ? near : far);
            const double by = b.y + dy;
            const int r = static_cast<int>(3 * b.size);
            for (int y = std::max(0, static_cast<int>(by) - r);
                 y < std::min(kHeight, static_cast<int>(by) + r); ++y)
                for (int x = std::max(0, static_cast<int>(bx) - r);
                     x < std::min(kWidth, static_cast<int>(bx) + r); ++x)
                    sum[static_cast<std::size_t>(y) * kWidth + x] +=
                        b.height * std::exp(-((x - bx) * (x - bx) + (y - by) * (y - by)) /
                                            (2 * b.size * b.size));
        }
        Image<std::uint8_t> image(kWidth, kHeight);
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                image.at(x, y) = static_cast<std::uint8_t>(
                    std::clamp(sum[static_cast<std::size_t>(y) * kWidth + x], 0.0, 255.0));
        return image;
    }
};

EpipolarReport judge(const Image<std::uint8_t>& left, const Image<std::uint8_t>& right,
                     double offset = 0) {
    EpipolarCheck check(offset);
    check.add(left.view(), right.view());
    return check.report();
}

TEST(EpipolarCheck, AlignedRowsFit) {
    const Scene scene(1);
    const EpipolarReport r = judge(scene.seen(0, 0, 0), scene.seen(24, 12, 0));
    EXPECT_EQ(EpipolarVerdict::kFits, r.verdict) << r.words;
    EXPECT_GT(r.matches, 100);
    EXPECT_LT(r.median_abs_dy_px, 0.2);
    EXPECT_GT(r.inlier_share, 0.95);
    EXPECT_TRUE(r.status().ok());
}

TEST(EpipolarCheck, ShiftedRowsDoNot) {
    const Scene scene(1);
    const EpipolarReport r = judge(scene.seen(0, 0, 0), scene.seen(24, 12, 3.5));
    EXPECT_EQ(EpipolarVerdict::kMisfit, r.verdict) << r.words;
    EXPECT_NEAR(-3.5, r.median_dy_px, 0.2);
    EXPECT_EQ(ErrorCode::kCalibrationMisfit, r.status().code());
    EXPECT_THAT(r.words, HasSubstr("does not fit"));
    EXPECT_EQ(EpipolarVerdict::kFitsPoorly,
              judge(scene.seen(0, 0, 0), scene.seen(24, 12, 1)).verdict);
}

TEST(EpipolarCheck, SwappedEyesAreNamed) {
    const Scene scene(2);
    const EpipolarReport r = judge(scene.seen(24, 12, 0), scene.seen(0, 0, 0));
    EXPECT_EQ(EpipolarVerdict::kSwapped, r.verdict) << r.words;
    EXPECT_THAT(r.words, HasSubstr("swapped"));
    // Negative differences of the columns are right where the principal points make up for them.
    EXPECT_EQ(EpipolarVerdict::kFits,
              judge(scene.seen(24, 12, 0), scene.seen(0, 0, 0), 30).verdict);
}

TEST(EpipolarCheck, WithoutTextureItCannotTell) {
    Image<std::uint8_t> blank(kWidth, kHeight);
    blank.fill(100);
    const EpipolarReport r = judge(blank, blank);
    EXPECT_EQ(EpipolarVerdict::kCannotTell, r.verdict);
    EXPECT_THAT(r.words, HasSubstr("cannot tell"));
    EXPECT_TRUE(r.status().ok());
}

TEST(EpipolarCheck, DifferentScenesDoNotMakeAVerdict) {
    const EpipolarReport r = judge(Scene(3).seen(0, 0, 0), Scene(4).seen(24, 12, 0));
    EXPECT_EQ(EpipolarVerdict::kCannotTell, r.verdict) << r.words;
}

TEST(EpipolarCheck, PicturesOfOtherSizesAddNothing) {
    Image<std::uint8_t> a(64, 64), b(64, 63), tiny(1, 1);
    EpipolarCheck check;
    check.add(a.view(), b.view());
    check.add(tiny.view(), tiny.view());
    EXPECT_EQ(0, check.report().matches);
}

TEST(PictureSize, OtherResolutionsAreNamed) {
    EXPECT_TRUE(checkPictureSize(640, 480, 640, 480).ok());
    EXPECT_THAT(checkPictureSize(1280, 960, 640, 480).message(), HasSubstr("another resolution"));
    EXPECT_THAT(checkPictureSize(640, 480, 1280, 480).message(), HasSubstr("hold both eyes"));
    EXPECT_THAT(checkPictureSize(640, 480, 752, 480).message(), HasSubstr("752x480"));
}

}  // namespace
}  // namespace kova::camera
