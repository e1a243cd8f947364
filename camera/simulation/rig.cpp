#include "camera/simulation/rig.h"

#include <algorithm>
#include <cmath>

#include "camera/calibration/lens.h"
#include "camera/simulation/random.h"
#include "camera/simulation/vector.h"

namespace kova::camera {

namespace {

std::array<double, 9> toArray(const Mat3& m) {
    std::array<double, 9> a{};
    for (int i = 0; i < 9; ++i) a[i] = m.m[i];
    return a;
}

/// Moves the right eye so that vertical errors of 0.2 px rms, a disparity offset of 0.1 to 0.3 px
/// and a focal length off by 0.1 % remain after rectification: what a good calibration leaves.
void addResidual(StereoCalibration& c, Random& random) {
    const double focal = 1.0 + 0.001 * random.sign() * random.uniform(0.5, 1.0);
    for (CameraIntrinsics* eye : {&c.left, &c.right}) {
        eye->fx *= focal;
        eye->fy *= focal;
    }
    c.right.cx += random.sign() * random.uniform(0.1, 0.3);

    // Vertical: an offset, a turn about the axis (grows with x), a scale (grows with y), so that
    // the sum over the picture has the wanted mean square. The mean square of a coordinate that
    // runs over [-h, h] is h^2 / 3.
    double shares[3];
    double norm = 0;
    for (double& share : shares) {
        share = random.normal();
        norm += share * share;
    }
    constexpr double kVerticalRms = 0.2;
    for (double& share : shares) share *= kVerticalRms / std::sqrt(std::max(norm, 1e-9));
    c.right.cy += shares[0];
    const double turn = shares[1] * std::sqrt(3.0) / (0.5 * c.width);
    const double scale = shares[2] * std::sqrt(3.0) / (0.5 * c.height);
    c.right.fy *= 1.0 + scale;
    const Mat3 turned = rotationZ(turn);
    Mat3 r;
    for (int i = 0; i < 9; ++i) r.m[i] = static_cast<float>(c.right_from_left[i]);
    c.right_from_left = toArray(turned * r);
    const Vec3 t = turned * Vec3{static_cast<float>(c.translation_mm[0]),
                                 static_cast<float>(c.translation_mm[1]),
                                 static_cast<float>(c.translation_mm[2])};
    c.translation_mm = {t.x, t.y, t.z};
}

/// A wide lens pair as it leaves the factory: barrel distortion, eyes not quite parallel.
void addLenses(StereoCalibration& c, Random& random) {
    for (CameraIntrinsics* eye : {&c.left, &c.right}) {
        eye->distortion = {random.uniform(-0.20, -0.14), random.uniform(0.03, 0.05),
                           random.uniform(-5e-4, 5e-4), random.uniform(-5e-4, 5e-4)};
        eye->cx += random.uniform(-6, 6) * c.width / 1280.0;
        eye->cy += random.uniform(-6, 6) * c.width / 1280.0;
        eye->fx *= 1.0 + random.uniform(-0.004, 0.004);
        eye->fy = eye->fx;
    }
    const Mat3 r = rotationX(random.uniform(-0.4, 0.4) * kRadPerDeg) *
                   rotationY(random.uniform(-0.4, 0.4) * kRadPerDeg) *
                   rotationZ(random.uniform(-0.4, 0.4) * kRadPerDeg);
    c.right_from_left = toArray(r);
    c.translation_mm[1] = random.uniform(-0.5, 0.5);
    c.translation_mm[2] = random.uniform(-0.5, 0.5);
    c.rectified = false;
}

}  // namespace

SimulatedRig makeRig(const RigOptions& options) {
    SimulatedRig rig;
    rig.width = options.width;
    rig.height = options.height;
    rig.fps = options.fps;
    rig.seed = options.seed;
    Random random(hash(options.seed, 4711));

    StereoCalibration& c = rig.given;
    c.width = options.width;
    c.height = options.height;
    c.rectified = true;
    c.left.fx = c.left.fy = options.focal_length_at_1280 * options.width / 1280.0;
    c.left.cx = 0.5 * options.width - 0.5;
    c.left.cy = 0.5 * options.height - 0.5;
    c.right = c.left;
    c.translation_mm = {-options.baseline_mm, 0, 0};
    if (options.lens_distortion)
        addLenses(c, random);
    rig.rendered = c;
    if (options.residual)
        addResidual(rig.rendered, random);

    rig.noise.scale = options.noise_scale;
    if (options.optics)
        for (EyeOptics& eye : rig.optics) {
            eye.blur_centre_px = random.uniform(0.50, 0.62);
            eye.blur_corner_px = eye.blur_centre_px + random.uniform(0.25, 0.55);
            eye.vignetting = random.uniform(0.20, 0.40);
        }
    if (options.optics) {
        // The eyes differ; the left one is the measure.
        rig.optics[1].gain = 1.0 + random.sign() * random.uniform(0.02, 0.05);
        rig.optics[1].offset = random.sign() * random.uniform(0.02, 0.05) * 40.0;
    }
    return rig;
}

std::array<double, 2> pixelOfDirection(const CameraIntrinsics& eye, double x, double y) {
    const ImagePoint p = projectRay(eye, {x, y, 1.0});
    return {p.x, p.y};
}

std::array<double, 2> directionOfPixel(const CameraIntrinsics& eye, double x_px, double y_px) {
    const double u = (x_px - eye.cx) / eye.fx, v = (y_px - eye.cy) / eye.fy;
    if (eye.distortion.empty())
        return {u, v};
    // Fixed point with the distortion as a correction; contracts for the lenses that we make.
    double x = u, y = v;
    for (int i = 0; i < 60; ++i) {
        const std::array<double, 2> p = pixelOfDirection(eye, x, y);
        const double du = (x_px - p[0]) / eye.fx, dv = (y_px - p[1]) / eye.fy;
        x += du;
        y += dv;
        if (du * du + dv * dv < 1e-22)
            break;
    }
    return {x, y};
}

RayTable::RayTable(const CameraIntrinsics& eye, int width, int height)
    : width_(width), height_(height), stride_(width + 2) {
    rays_.resize(static_cast<std::size_t>(stride_) * (height + 2));
    for (int y = -1; y <= height; ++y)
        for (int x = -1; x <= width; ++x) {
            const std::array<double, 2> d = directionOfPixel(eye, x, y);
            rays_[static_cast<std::size_t>(y + 1) * stride_ + (x + 1)] = {static_cast<float>(d[0]),
                                                                          static_cast<float>(d[1])};
        }
}

}  // namespace kova::camera
