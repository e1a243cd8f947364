#include "camera/calibration/lens.h"

#include <cmath>
#include <limits>

namespace kova::camera {

namespace {

ImagePoint radialTangential(const CameraIntrinsics& camera, double x, double y) {
    const auto k = [&](std::size_t i) {
        return i < camera.distortion.size() ? camera.distortion[i] : 0.0;
    };
    const double r2 = x * x + y * y;
    const double radial =
        (1 + r2 * (k(0) + r2 * (k(1) + r2 * k(4)))) / (1 + r2 * (k(5) + r2 * (k(6) + r2 * k(7))));
    const double p1 = k(2);
    const double p2 = k(3);
    return {x * radial + 2 * p1 * x * y + p2 * (r2 + 2 * x * x) + r2 * (k(8) + r2 * k(9)),
            y * radial + p1 * (r2 + 2 * y * y) + 2 * p2 * x * y + r2 * (k(10) + r2 * k(11))};
}

ImagePoint equidistant(const CameraIntrinsics& camera, const std::array<double, 3>& ray) {
    const double r = std::hypot(ray[0], ray[1]);
    if (r == 0)
        return {0, 0};
    const double theta = std::atan2(r, ray[2]);
    const double t2 = theta * theta;
    double series = 0;
    for (std::size_t i = camera.distortion.size(); i-- > 0;)
        series = (series + camera.distortion[i]) * t2;
    const double scale = theta * (1 + series) / r;
    return {ray[0] * scale, ray[1] * scale};
}

}  // namespace

ImagePoint projectRay(const CameraIntrinsics& camera, const std::array<double, 3>& ray) {
    ImagePoint p;
    if (camera.lens == LensModel::kEquidistant) {
        p = equidistant(camera, ray);
    } else if (ray[2] > 0) {
        p = radialTangential(camera, ray[0] / ray[2], ray[1] / ray[2]);
    } else {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        return {nan, nan};
    }
    return {camera.fx * p.x + camera.cx, camera.fy * p.y + camera.cy};
}

}  // namespace kova::camera
