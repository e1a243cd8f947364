#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "camera/base/status.h"
#include "camera/calibration/stereo_calibration.h"

namespace kova::camera {

/// The forms in which stereo calibrations are met.
enum class CalibrationFormat {
    kAuto,        ///< found out from the content
    kKova,        ///< what toYaml() writes
    kOpenCv,      ///< intrinsics.yml (M1 D1 M2 D2) and extrinsics.yml (R T), in one or two files
    kRos,         ///< a pair of camera_info files; the right P[0,3] is -fx * baseline in metres
    kKitti,       ///< P0..P3, P_rect_00..03, or two 3x4 matrices without labels; metres
    kEuroc,       ///< a pair of sensor.yaml; T_BS takes the sensor's frame to the body's; metres
    kKalibr,      ///< camchain.yaml; T_cn_cnm1 takes camera 0's frame to camera 1's; metres
    kMiddlebury,  ///< calib.txt: cam0, cam1, doffs, baseline in mm
};

/// "ROS camera_info" and so on, for messages.
const char* formatName(CalibrationFormat format);

struct ReadCalibrationOptions {
    CalibrationFormat format = CalibrationFormat::kAuto;
    /// Size of one eye's picture [px]. Needed where the file does not say it (OpenCV intrinsics,
    /// KITTI without sizes); where it does, another size is an error.
    int width = 0;
    int height = 0;
    /// Length of the unit of T in OpenCV's extrinsics [mm]; it is the unit of the board's squares.
    double mm_per_unit = 1;
    /// Takes KITTI's colour cameras 2 and 3 instead of the grey ones 0 and 1; these are also taken
    /// where the file has no others.
    bool kitti_colour = false;
};

/// Reads a stereo calibration. One path, or two where a format has a file per eye (left first) or
/// per kind (intrinsics, extrinsics). A folder stands for the files of their usual names in it.
/// Wrong units, wrong signs, swapped eyes and other resolutions are said in words.
///
/// @return kCannotOpenFile; kInvalidFile; kInvalidArgument when the picture size is needed
Result<StereoCalibration> readCalibration(const std::vector<std::filesystem::path>& paths,
                                          const ReadCalibrationOptions& options = {});

inline Result<StereoCalibration> readCalibration(const std::filesystem::path& path,
                                                 const ReadCalibrationOptions& options = {}) {
    return readCalibration(std::vector<std::filesystem::path>{path}, options);
}

/// Writes a calibration in another tool's form. ROS and EuRoC get a folder with left.yaml and
/// right.yaml, or cam0/sensor.yaml and cam1/sensor.yaml, OpenCV one with intrinsics.yml and
/// extrinsics.yml; the others a file. KITTI and Middlebury hold rectified pairs only.
///
/// @param path  the file or folder; folders are made
/// @return kInvalidArgument (the form cannot hold this calibration, in words), kWriteFailed
Status writeCalibration(const StereoCalibration& calibration, CalibrationFormat format,
                        const std::filesystem::path& path);

}  // namespace kova::camera
