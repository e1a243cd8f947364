#pragma once

#include "camera/base/image.h"

namespace kova::camera {

/// The pictures of both eyes as detection compares them: as they are, or softened where noise
/// drowns their texture.
class ComparedPictures {
public:
    using Grey = ImageView<const std::uint8_t>;

    /// Changes the size; allocates only when it grows.
    void resize(int width, int height);

    /// @param left, right  of the given size; the right one may be empty. Must outlive the use.
    /// @param noisy        see DisparityMap::noisy
    void set(const Grey& left, const Grey& right, bool noisy);

    const Grey& left() const { return left_; }
    const Grey& right() const { return right_; }

    /// Deviation of what is left of noise: a part of what it was in the pictures as they came.
    float noiseLeft() const { return softened_ ? kNoiseLeft : 1; }
    /// Variance of the difference of two pixels that show the same, by what is usual in a picture
    /// that came with enough light; at least 1.
    float noise() const { return noise_; }

    /// What the mean of 5x5 with the weights 1 4 6 4 1 leaves of the mean difference of pixels 4 px
    /// apart, as part of that of neighbours before: sqrt((70^2 - 70) / 2^16).
    static constexpr float kNoiseLeft = 0.2715f;

private:
    Grey left_, right_;
    Image<std::uint8_t> soft_left_, soft_right_;
    bool softened_ = false;
    float noise_ = 1;
};

/// Deviation of a picture's noise [grey levels], from second differences that even slopes do not
/// have (Immerkaer, "Fast noise variance estimation", CVIU 1996), in every eighth row.
float noiseDeviation(const ImageView<const std::uint8_t>& picture);

}  // namespace kova::camera
