#include "camera/detection/photometric.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "camera/base/image.h"

namespace kova::camera {
namespace {

constexpr int kWidth = 120, kHeight = 40;

/// A pair of one texture; the left picture shows at (x, y) what the right one shows at x - d(y).
struct Pair {
    Image<std::uint8_t> left{kWidth, kHeight};
    Image<std::uint8_t> right{kWidth, kHeight};

    explicit Pair(const std::function<double(int)>& d, double contrast = 40, double period = 0) {
        std::mt19937 random(7);
        std::vector<double> lattice(4096);
        for (double& value : lattice)
            value = contrast * (static_cast<double>(random() % 2001) / 1000 - 1);
        const auto texture = [&](double x, int y) {
            if (period > 0)
                return contrast * std::sin(x * 6.283185307179586 / period);
            const double at = x / 3 + 40;
            const auto i = static_cast<std::size_t>(at);
            const double t = at - static_cast<double>(i);
            const auto row = static_cast<std::size_t>(y / 3) * 97;
            return lattice[row + i] * (1 - t) + lattice[row + i + 1] * t;
        };
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                left.at(x, y) = static_cast<std::uint8_t>(std::lround(128 + texture(x, y)));
                // Another gain would be another residual; another offset is none.
                right.at(x, y) = static_cast<std::uint8_t>(std::lround(118 + texture(x + d(y), y)));
            }
    }

    PhotometricFit fit(int x_begin, int x_end, const std::function<double(int)>& d,
                       int compared_from = 0) const {
        std::vector<RowHypothesis> rows;
        for (int y = 8; y < 32; ++y)
            rows.push_back({y, static_cast<int>(std::lround(16 * d(y))), y >= compared_from});
        PhotometricFit fit;
        photometricFit(left.view(), right.view(), x_begin, x_end, rows.data(),
                       static_cast<int>(rows.size()), true, fit);
        return fit;
    }
};

double upright(int) {
    return 12.3;
}
double lying(int y) {
    return 4 + 0.4 * y;
}

TEST(Photometric, TheTrueSurfaceLeavesLessThanTheOther) {
    const Pair thing(upright), ground(lying);
    EXPECT_LT(thing.fit(60, 66, upright).residual, 8);  // of interpolation
    EXPECT_GT(thing.fit(60, 66, upright).correlation, 0.99f);
    EXPECT_GT(thing.fit(60, 66, lying).residual, 50);
    EXPECT_LT(ground.fit(60, 66, lying).residual, 8);
    EXPECT_GT(ground.fit(60, 66, upright).residual, 50);
    EXPECT_LT(ground.fit(60, 66, upright).correlation, 0.8f);
    EXPECT_EQ(thing.fit(60, 66, upright).pixels, 144);
}

TEST(Photometric, HalfAPixelOffIsMadeUpFor) {
    const Pair thing(upright);
    EXPECT_LT(thing.fit(60, 66, [](int) { return 12.9; }).residual, 8);
    EXPECT_LT(thing.fit(60, 66, [](int) { return 11.7; }).residual, 8);
    EXPECT_GT(thing.fit(60, 66, [](int) { return 14.3; }).residual, 50);
}

TEST(Photometric, WhatWouldFitElsewhereAsWellIsTold) {
    const PhotometricFit clear = Pair(upright).fit(60, 66, upright);
    EXPECT_GT(clear.elsewhere_residual, 20 * (clear.residual + 2));
    const PhotometricFit plain = Pair(upright, 0).fit(60, 66, upright);
    EXPECT_LT(plain.elsewhere_residual, 1);
    const PhotometricFit repeats = Pair(upright, 40, 4.625).fit(60, 66, upright);
    EXPECT_LT(repeats.elsewhere_residual, 0.1f * repeats.variance);
}

TEST(Photometric, OnlyTheComparedRowsCountForTheSecondSum) {
    const Pair mixed([](int y) { return y < 20 ? 12.3 : 4 + 0.4 * y; });
    const PhotometricFit all = mixed.fit(60, 66, lying);
    const PhotometricFit low = mixed.fit(60, 66, lying, 20);
    EXPECT_GT(all.compared_residual, 100);
    EXPECT_LT(low.compared_residual, 20);
    EXPECT_EQ(low.compared_pixels, 72);
    EXPECT_EQ(low.residual, all.residual);
}

TEST(Photometric, WhatTheRightEyeDoesNotSeeDoesNotCount) {
    const Pair thing(upright);
    EXPECT_EQ(thing.fit(2, 8, upright).pixels, 0);
    // Columns 13 and on lie inside, with the shift that leaves the most.
    const PhotometricFit border = thing.fit(10, 16, upright);
    EXPECT_GT(border.pixels, 0);
    EXPECT_LT(border.pixels, 144);
    const PhotometricFit right = thing.fit(kWidth - 4, kWidth, [](int) { return 0.0; });
    EXPECT_LE(right.pixels, 4 * 24);
}

}  // namespace
}  // namespace kova::camera
