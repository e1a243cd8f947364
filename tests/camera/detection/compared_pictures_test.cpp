#include "camera/detection/compared_pictures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>

namespace kova::camera {
namespace {

constexpr int kWidth = 300, kHeight = 160;

/// A slope with noise of the given deviation.
Image<std::uint8_t> noisySlope(double deviation, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> noise(0, deviation);
    Image<std::uint8_t> picture(kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            picture.at(x, y) = static_cast<std::uint8_t>(
                std::lround(std::clamp(90 + 0.1 * x + 0.1 * y + noise(random), 0.0, 255.0)));
    return picture;
}

double meanChange(const ImageView<const std::uint8_t>& picture, int step) {
    double sum = 0;
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x + step < picture.width; ++x)
            sum += std::abs(picture.at(x + step, y) - picture.at(x, y));
    return sum / ((picture.width - step) * picture.height);
}

TEST(ComparedPictures, NoiseIsMeasuredOnASlope) {
    for (const double deviation : {2.0, 8.0, 20.0})
        EXPECT_NEAR(deviation, noiseDeviation(noisySlope(deviation, 1).view()), 0.04 * deviation);
    EXPECT_EQ(0, noiseDeviation({}));
}

TEST(ComparedPictures, StayAsTheyAreWithoutMuchNoise) {
    ComparedPictures pictures;
    pictures.resize(kWidth, kHeight);
    const auto left = noisySlope(20, 1), right = noisySlope(20, 2), clear = noisySlope(2, 3);
    pictures.set(left.view(), right.view(), false);
    EXPECT_EQ(left.view().data, pictures.left().data);
    EXPECT_EQ(right.view().data, pictures.right().data);
    EXPECT_EQ(1, pictures.noise());
    EXPECT_EQ(1, pictures.noiseLeft());
    pictures.set(clear.view(), right.view(), true);
    EXPECT_EQ(clear.view().data, pictures.left().data);
    EXPECT_EQ(1, pictures.noise());
}

TEST(ComparedPictures, AreSoftenedInNoiseAndSayHowMuchIsLeft) {
    ComparedPictures pictures;
    pictures.resize(kWidth, kHeight);
    const auto left = noisySlope(20, 1), right = noisySlope(20, 2);
    pictures.set(left.view(), right.view(), true);
    // Noise alone: what is left over 4 px is that part of what neighbours differed by.
    EXPECT_NEAR(
        1, meanChange(pictures.left(), 4) / (pictures.noiseLeft() * meanChange(left.view(), 1)),
        0.05);
    double squares = 0;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            squares += std::pow(pictures.left().at(x, y) - pictures.right().at(x, y), 2);
    EXPECT_NEAR(10, squares / (kWidth * kHeight) / pictures.noise(), 1) << "as in enough light";
    pictures.set(left.view(), {}, true);
    EXPECT_EQ(nullptr, pictures.right().data);
}

}  // namespace
}  // namespace kova::camera
