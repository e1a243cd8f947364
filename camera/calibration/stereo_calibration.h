#pragma once

#include <array>
#include <string>
#include <vector>

#include "camera/base/status.h"

namespace kova::camera {

enum class LensModel {
    kRadialTangential,  ///< Brown-Conrady: k1 k2 p1 p2 [k3 [k4 k5 k6]], OpenCV's order
    kEquidistant,       ///< Kannala-Brandt fisheye: k1 k2 k3 k4
};

/// One camera of the pair, in pixels of its own picture.
struct CameraIntrinsics {
    double fx = 0, fy = 0, cx = 0, cy = 0;
    LensModel lens = LensModel::kRadialTangential;
    std::vector<double> distortion;  ///< empty: none
};

/// Calibration of a stereo pair. A point p_left in the left camera's frame [mm] has the
/// coordinates p_right = right_from_left * p_left + translation_mm in the right one; a camera whose
/// right eye lies to the right has a negative x there.
struct StereoCalibration {
    int width = 0;   ///< [px] of one eye's picture
    int height = 0;  ///< [px]
    CameraIntrinsics left;
    CameraIntrinsics right;
    std::array<double, 9> right_from_left = {1, 0, 0, 0, 1, 0, 0, 0, 1};  ///< rotation, by rows
    std::array<double, 3> translation_mm = {0, 0, 0};
    /// The pictures are rectified already: equal focal lengths, aligned rows, no distortion.
    bool rectified = false;

    double baselineMm() const;
    /// Axis times angle [rad] of right_from_left.
    std::array<double, 3> rotationVector() const;

    /// Says in words what is impossible: sizes, focal lengths, a baseline of zero or of the wrong
    /// sign or unit, swapped eyes, a matrix that is no rotation, values that are not finite.
    Status check() const;
};

/// The same cameras delivering their whole view at another resolution, as by joining pixels.
StereoCalibration scaledCalibration(const StereoCalibration& calibration, int width, int height);

/// Geometry of the rectified pair, one for both eyes but for the principal point's x.
/// Depth [mm] of a disparity d [px]: fx * baseline_mm / (d + cx_right - cx).
struct RectifiedGeometry {
    int width = 0;                          ///< [px], a multiple of 4
    int height = 0;                         ///< [px]
    double fx = 0, fy = 0, cx = 0, cy = 0;  ///< left [px]
    double cx_right = 0;                    ///< right [px]
    double baseline_mm = 0;

    /// Added to a disparity before depth is computed [px].
    double disparityOffset() const { return cx_right - cx; }
};

/// Writes a calibration as OpenCV YAML (image_width, image_height, M1, D1, M2, D2, R, T in mm,
/// lens_model, rectified).
std::string toYaml(const StereoCalibration& calibration);

/// Reads what toYaml() writes.
/// @return kInvalidFile, with what is missing or impossible
Result<StereoCalibration> calibrationFromYaml(const std::string& yaml);

}  // namespace kova::camera
