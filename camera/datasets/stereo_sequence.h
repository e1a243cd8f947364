#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "camera/base/status.h"
#include "camera/calibration/stereo_calibration.h"
#include "camera/sources/frame.h"

namespace kova::camera {

/// How published sets of stereo pictures lie in their folders.
enum class DatasetLayout {
    kKittiOdometry,  ///< image_0, image_1 (or image_2, image_3), calib.txt, times.txt in seconds
    kKittiStereo,    ///< image_2, image_3 (or image_0, image_1) with *_10.png, calib_cam_to_cam
    kUnlabelled,     ///< image_l, image_r, calib.txt of two 3x4 matrices without labels, no times
    kMiddlebury,     ///< im0, im1, calib.txt: one pair
    kEuroc,          ///< cam0, cam1 with data and sensor.yaml, imu0; also below mav0
    kFolders,        ///< left, right; or left*, right* side by side in one folder
};

/// "kitti-odometry", "kitti-stereo", "unlabelled", "middlebury", "euroc", "folders".
const char* nameOf(DatasetLayout layout);
std::optional<DatasetLayout> datasetLayoutFromName(const std::string& name);
/// All names, for help and messages.
std::vector<std::string> datasetLayoutNames();

struct SequenceOptions {
    std::optional<DatasetLayout> layout;  ///< found out where not given
    double fps = 0;                       ///< [frames/s] where the set has no time stamps
    /// Calibration instead of the set's own: a file, two files or a folder, as readCalibration().
    std::vector<std::filesystem::path> calibration;
    /// fx, fy, cx, cy [px], baseline [mm] of a rectified set without a calibration file.
    std::optional<std::array<double, 5>> intrinsics;
    /// Colour cameras 2, 3 of KITTI sets that have both kinds.
    bool colour = false;
};

/// A set of stereo pictures on disk: where its pictures lie, when they were taken, how the cameras
/// stood. Pictures are read when they are needed.
struct StereoSequence {
    struct Pair {
        std::filesystem::path left;
        std::filesystem::path right;
        std::int64_t t_ns = 0;
    };

    DatasetLayout layout = DatasetLayout::kFolders;
    std::string name;         ///< of the folder
    std::vector<Pair> pairs;  ///< in order of time
    int width = 0;            ///< [px] of one picture, of the first pair
    int height = 0;
    double fps = 0;          ///< given, or from the median distance of the time stamps
    bool has_times = false;  ///< the set's own time stamps
    int unpaired = 0;        ///< pictures without a partner, left out
    StereoCalibration calibration;
    /// In the left camera's frame, inside the time from the first to the last pair.
    std::vector<ImuSample> imu;
};

/// Finds the pictures, time stamps, inertial samples and calibration of a set.
///
/// @return kCannotOpenFile (no such folder); kInvalidFile (no known layout, no pairs, damaged
///         files); kInvalidArgument (the rate or the calibration must be given), in words
Result<StereoSequence> openSequence(const std::filesystem::path& folder,
                                    const SequenceOptions& options = {});

}  // namespace kova::camera
