#pragma once

#include <array>

#include "camera/calibration/stereo_calibration.h"

namespace kova::camera {

struct ImagePoint {
    double x = 0, y = 0;  ///< [px], whole numbers at the pixels' centres
};

/// Projects a point of the camera's frame (x right, y down, z forward) through its lens.
///
/// Radial-tangential: Brown 1966 with the rational and thin-prism terms of OpenCV (up to 12
/// coefficients); equidistant: Kannala and Brandt, PAMI 2006. A ray that does not point forward is
/// projected for the equidistant lens only; for the other it gives not-a-number.
ImagePoint projectRay(const CameraIntrinsics& camera, const std::array<double, 3>& ray);

}  // namespace kova::camera
