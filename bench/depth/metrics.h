#pragma once

#include "camera/base/disparity.h"
#include "camera/base/image.h"

namespace kova::bench {

/// Errors of a disparity map over the pixels with known truth. Shares are per cent.
struct DepthErrors {
    double pixels = 0;        ///< pixels with truth
    double density = 0;       ///< share of them with a disparity
    double bad1 = 0;          ///< share of those with a disparity whose error exceeds 1 px
    double bad2 = 0;          ///< ... 2 px
    double d1 = 0;            ///< ... 3 px and 5 % of the truth
    double rms = 0;           ///< standard deviation of the errors up to 3 px [px]
    double thin_pixels = 0;   ///< pixels of thin foreground
    double thin_density = 0;  ///< share of them with a disparity
    double thin_bad2 = 0;     ///< share of those wrong by more than 2 px
};

/// Thin foreground is where the truth exceeds its 15x15 opening by more than 4 px.
camera::Image<std::uint8_t> thinForeground(const camera::ImageView<const float>& truth);

/// @param thin from thinForeground()
DepthErrors measureErrors(const camera::ImageView<const std::uint16_t>& disparity,
                          const camera::ImageView<const float>& truth,
                          const camera::ImageView<const std::uint8_t>& thin);

/// Completes a map without regard to the picture, the same way for every matcher: a run of missing
/// pixels in a row takes the smaller of its two neighbours, at the border the only one; rows
/// without any disparity take the row above (else 0).
void fillRows(camera::Image<std::uint16_t>& disparity);

}  // namespace kova::bench
