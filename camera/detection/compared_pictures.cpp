#include "camera/detection/compared_pictures.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "camera/base/parallel.h"
#include "camera/matching/planes.h"
#include "camera/matching/strips.h"

namespace kova::camera {

namespace {

constexpr sgm::Denoising kSoftening = {80, true};
/// From here on softening is worth it [grey levels]: below, rounding would weigh as much.
constexpr float kMuchNoise = 6;
/// Variance of the difference of two pixels that show the same, in a picture that came with enough
/// light [grey levels^2].
constexpr float kUsualVariance = 10;

void soften(const ComparedPictures::Grey& picture, Image<std::uint8_t>& soft) {
    const int height = picture.height;
    parallelFor(stripsFor(height), [&](int strip) {
        sgm::softenRows(picture, kSoftening, soft.view(), stripBegin(strip, height),
                        stripBegin(strip + 1, height));
    });
}

}  // namespace

void ComparedPictures::resize(int width, int height) {
    soft_left_.resize(width, height);
    soft_right_.resize(width, height);
}

void ComparedPictures::set(const Grey& left, const Grey& right, bool noisy) {
    left_ = left;
    right_ = right;
    softened_ = false;
    noise_ = 1;
    if (!noisy)
        return;
    const float deviation = noiseDeviation(left);
    if (deviation < kMuchNoise)
        return;
    softened_ = true;
    const float rest = kNoiseLeft * deviation;
    noise_ = std::max(1.0f, 2 * rest * rest / kUsualVariance);
    soften(left, soft_left_);
    left_ = soft_left_.view();
    if (!right.data)
        return;
    soften(right, soft_right_);
    right_ = soft_right_.view();
}

float noiseDeviation(const ImageView<const std::uint8_t>& picture) {
    std::int64_t sum = 0, count = 0;
    for (int y = 1; y + 1 < picture.height; y += 8) {
        const std::uint8_t *above = picture.row(y - 1), *here = picture.row(y),
                           *below = picture.row(y + 1);
        std::int32_t row = 0;
        for (int x = 1; x + 1 < picture.width; ++x)
            row += std::abs(above[x - 1] - 2 * above[x] + above[x + 1] -
                            2 * (here[x - 1] - 2 * here[x] + here[x + 1]) + below[x - 1] -
                            2 * below[x] + below[x + 1]);
        sum += row;
        count += std::max(picture.width - 2, 0);
    }
    constexpr double kHalfPi = 1.5707963;
    return count == 0 ? 0
                      : static_cast<float>(std::sqrt(kHalfPi) / 6 * static_cast<double>(sum) /
                                           static_cast<double>(count));
}

}  // namespace kova::camera
