#pragma once

#include <memory>

#include "camera/matching/matcher.h"

namespace kova::camera {

/// OpenCV's StereoSGBM in its three-way mode (after Hirschmüller, PAMI 2008), behind the common
/// interface. Block 3, P1 = 8 * 9, P2 = 32 * 9, preFilterCap 63, uniquenessRatio 10, disp12MaxDiff
/// 1, speckles 100 / 2. Fast works at half resolution and scales up; medium and slow are the same.
/// The leftmost columns, as many as disparities are searched, get no disparity.
///
/// Confidence, on what passed OpenCV's own left-right and uniqueness checks: the share of the 5x5
/// neighbourhood whose disparity agrees to within 1 px (disparity agreement in the survey of Poggi
/// et al., arXiv 2101.00431), halved where the horizontal gradient of the left picture is weak.
/// It is monotone, but not calibrated as a probability. Fill takes the farther of the nearest
/// disparities to the left and to the right, and where only one side has one, that.
std::unique_ptr<Matcher> makeOpenCvMatcher();

}  // namespace kova::camera
