#pragma once

#include <string>

#include "camera/base/status.h"
#include "camera/calibration/epipolar.h"
#include "camera/calibration/stereo_calibration.h"
#include "tools/picture_pairs.h"

namespace kova::tools {

/// Judges a calibration on at most 20 pairs, evenly spread. Where it does not fit, the usual
/// mistakes are tried (eyes swapped, R the wrong way round, numbers of another resolution, pictures
/// that are rectified already); one that explains the misfit is named in the words.
///
/// @param every  look at every n-th pair only
/// @return kCalibrationMisfit (another picture size), kInvalidFile (the pictures cannot be read);
/// the
///         report says whether it fits
camera::Result<camera::EpipolarReport> judgeCalibration(
    const camera::StereoCalibration& calibration, PicturePairs& pairs, int every);

/// What a calibration describes, by which a wrong unit is seen: "640x400, baseline 120.0 mm, view
/// 80 degrees wide; at 1 m the eyes' pictures differ by 45.6 px".
std::string describeCalibration(const camera::StereoCalibration& calibration);

}  // namespace kova::tools
