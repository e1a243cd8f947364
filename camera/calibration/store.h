#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "camera/base/status.h"
#include "camera/calibration/stereo_calibration.h"

namespace kova::camera {

/// Where the calibrations of cameras lie, in the order in which they are searched:
/// $XDG_CONFIG_HOME/kova (without the variable ~/.config/kova), then /etc/kova.
std::vector<std::filesystem::path> calibrationFolders();

/// The file of a camera below a folder: SERIAL.yaml.
std::filesystem::path calibrationFile(const std::filesystem::path& folder, std::uint32_t serial);

/// The calibration of a camera, for its pictures' size. One that was made at another resolution of
/// the same view (a whole multiple, so that the camera joins pixels) is scaled.
///
/// @param width, height  of one eye's picture; 0: as the file says
/// @return kNotCalibrated where there is none, kCalibrationMisfit where the size does not fit,
///         kInvalidFile, all in words
Result<StereoCalibration> findCalibration(std::uint32_t serial, int width = 0, int height = 0);

/// Writes a camera's calibration to the first folder, which is made if needed.
/// @param path  if not null, receives where it went
Status storeCalibration(std::uint32_t serial, const StereoCalibration& calibration,
                        std::filesystem::path* path = nullptr);

/// Writes a text beside its place and renames it, so that a file is never half written.
Status writeTextFile(const std::filesystem::path& path, const std::string& text);

}  // namespace kova::camera
