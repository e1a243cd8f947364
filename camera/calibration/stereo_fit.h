#pragma once

#include <opencv2/core.hpp>

#include <array>
#include <vector>

#include "camera/calibration/calibrator.h"
#include "camera/calibration/stereo_calibration.h"

namespace kova::camera {

/// Points of a board that both eyes saw, one entry per view; z is 0 on the board.
struct BoardObservations {
    std::vector<std::vector<cv::Point3f>> board;
    std::vector<std::vector<cv::Point2f>> left, right;
};

/// A calibration and how well it explains the views.
struct StereoFit {
    StereoCalibration calibration;
    LensFreedom lenses = LensFreedom::kSame;   ///< never kAuto
    double left_rms_px = 0, right_rms_px = 0;  ///< of each eye for itself
    double stereo_rms_px = 0;
    double epipolar_rms_px = 0;                         ///< between the rows after rectification
    double focal_sigma = 0;                             ///< relative; 0 where it is not known
    std::vector<std::array<double, 2>> view_errors_px;  ///< rms of each view, left and right
};

/// Fits one kind of lenses: each eye first, then both together.
///
/// Same and free lenses: Zhang, PAMI 2000, with Brown's distortion; fisheye: Kannala and Brandt,
/// PAMI 2006; both as OpenCV has them.
///
/// @param lenses        not kAuto
/// @param coefficients  of free lenses: 4, 5, 8; 0: 5 where the fifth is clear, else 4
/// @throws cv::Exception where nothing fits
StereoFit fitStereo(const BoardObservations& views, int width, int height, LensFreedom lenses,
                    int coefficients);

}  // namespace kova::camera
