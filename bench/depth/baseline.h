#pragma once

#include "camera/base/image.h"

namespace kova::bench {

/// OpenCV's semi-global matchers, the baseline: P1 = 8 b², P2 = 32 b², preFilterCap 63,
/// uniquenessRatio 10, disp12MaxDiff 1, speckles 100 / 2.
struct Baseline {
    const char* name;
    int block;
    bool three_way;  ///< MODE_SGBM_3WAY, else MODE_HH4
};
constexpr Baseline kBaselines[] = {
    {"3WAY, block 3", 3, true}, {"3WAY, block 5", 5, true}, {"HH4, block 3", 3, false}};

/// Matches over disparities [0, levels). With `padded`, both pictures are first continued on the
/// left by that many pixels, so that the columns there get a disparity too.
void matchBaseline(const Baseline& baseline, const camera::ImageView<const std::uint8_t>& left,
                   const camera::ImageView<const std::uint8_t>& right, int levels, bool padded,
                   camera::Image<std::uint16_t>& disparity);

}  // namespace kova::bench
