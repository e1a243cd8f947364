#pragma once

#include <cstdint>
#include <limits>

#include "camera/base/image.h"
#include "camera/calibration/stereo_calibration.h"

namespace kova::camera {

/// Which points are kept, by their distance z along the optical axis.
struct PointLimits {
    float min_mm = 0;                                       ///< nearer points are left out
    float max_mm = std::numeric_limits<float>::infinity();  ///< farther ones too
};

/// Turns disparities into points of the rectified left camera's frame (x right, y down, z forward),
/// by z = fx * baseline / (d + cx_right - cx).
///
/// @param disparity  1/16 px or reserved, of the geometry's size
/// @param points     height x width x 3 floats [mm], without gaps; all three are NaN where there is
///                   no disparity, where it lies behind infinity, and beyond the limits
/// @note Bit-identical to computePointsReference() on every CPU and for every number of threads.
void computePoints(const ImageView<const std::uint16_t>& disparity,
                   const RectifiedGeometry& geometry, const PointLimits& limits, float* points);

}  // namespace kova::camera
