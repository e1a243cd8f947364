#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "camera/calibration/stereo_calibration.h"

namespace kova::camera {

struct RigOptions {
    int width = 640;   ///< [px] of one eye
    int height = 400;  ///< [px]
    double fps = 30;
    std::uint32_t seed = 1;
    double baseline_mm = 120;
    double focal_length_at_1280 = 760;  ///< [px]; scales with the width
    /// The pictures are made with parameters a little off those of the calibration, as those of
    /// every real camera are. Off: they agree exactly.
    bool residual = true;
    bool lens_distortion = false;  ///< pictures before rectification
    bool optics = true;            ///< blur, vignetting, differences of the eyes
    double noise_scale = 1;        ///< 0: no noise
};

/// What one lens and sensor do to the light.
struct EyeOptics {
    double blur_centre_px = 0;  ///< deviation of a Gaussian, at the picture's centre
    double blur_corner_px = 0;
    double vignetting = 0;  ///< share of the light lost in the corners
    double gain = 1;
    double offset = 0;  ///< [grey levels]
};

/// Sensor noise, in grey levels of an 8-bit picture at gain 1.
struct SensorNoise {
    double shot_variance = 1.0 / 30.0;  ///< per grey level: 30 electrons make one
    double read_deviation = 1.1;
    double scale = 1;
};

/// A simulated stereo camera: what the pipeline is told, and how the pictures are made.
struct SimulatedRig {
    int width = 0, height = 0;  ///< [px] of one eye
    double fps = 30;
    std::uint32_t seed = 1;
    StereoCalibration given;     ///< for the pipeline
    StereoCalibration rendered;  ///< differs by the residual error
    EyeOptics optics[2];         ///< left, right
    SensorNoise noise;
};

SimulatedRig makeRig(const RigOptions& options);

/// Directions of the pixels' centres, (x/z, y/z), in one eye's frame. Kept with a border of one
/// pixel around the picture.
class RayTable {
public:
    RayTable() = default;
    RayTable(const CameraIntrinsics& eye, int width, int height);

    struct Ray {
        float x = 0, y = 0;
    };
    /// x in [-1, width], y in [-1, height]
    const Ray& at(int x, int y) const {
        return rays_[static_cast<std::size_t>(y + 1) * stride_ + (x + 1)];
    }
    int width() const { return width_; }
    int height() const { return height_; }

private:
    int width_ = 0, height_ = 0, stride_ = 0;
    std::vector<Ray> rays_;
};

/// Pixel coordinates to a direction (x/z, y/z), lens distortion undone.
std::array<double, 2> directionOfPixel(const CameraIntrinsics& eye, double x_px, double y_px);
/// A direction to pixel coordinates, with lens distortion.
std::array<double, 2> pixelOfDirection(const CameraIntrinsics& eye, double x, double y);

}  // namespace kova::camera
