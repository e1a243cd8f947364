#pragma once

// Readers of the single formats, behind readCalibration(). Each gets the files' whole text, in the
// order in which they were given, and leaves the checks common to all formats to its caller.

#include <filesystem>
#include <string>
#include <vector>

#include "camera/calibration/formats.h"

namespace kova::camera {

struct CalibrationText {
    std::filesystem::path path;
    std::string text;
};
using CalibrationTexts = std::vector<CalibrationText>;

Result<StereoCalibration> readOpenCvCalibration(const CalibrationTexts& files,
                                                const ReadCalibrationOptions& options);
Result<StereoCalibration> readRosCalibration(const CalibrationTexts& files);
Result<StereoCalibration> readEurocCalibration(const CalibrationTexts& files);
Result<StereoCalibration> readKalibrCalibration(const CalibrationTexts& files);
Result<StereoCalibration> readKittiCalibration(const CalibrationTexts& files,
                                               const ReadCalibrationOptions& options);
Result<StereoCalibration> readMiddleburyCalibration(const CalibrationTexts& files);

/// "NAME: WHAT" as an error of the file.
Status invalidCalibration(const std::filesystem::path& path, const std::string& what);

/// A length read in metres, as millimetres; refuses what can only be another unit.
/// @param what  "the baseline" or such
Status checkMetres(const std::filesystem::path& path, const std::string& what, double metres);

/// A number as people write it.
std::string numberText(double value);

}  // namespace kova::camera
