#pragma once

#include <array>
#include <string>
#include <vector>

#include "camera/base/status.h"
#include "camera/sources/frame.h"

namespace kova::camera {

/// What a person states about a camera because the device does not: a YAML file
/// `cameras/SERIAL.yaml` or, for all others, `cameras/default.yaml` below the configuration folder.
///
/// ```
/// layout: side_by_side     # or top_bottom, interleaved; guessed from the shape when left out
/// swapped: false           # the eyes lie in each other's place
/// left_flipped: false      # an eye's picture is turned by 180 degrees
/// right_flipped: false
/// iio: bmi160              # name of the inertial unit among the Linux IIO devices, or a list of
///                          # names where its sensors are devices of their own: [accel_3d, gyro_3d]
/// imu_to_camera: [1, 0, 0, 0, 1, 0, 0, 0, 1]   # rotation, rows, into x right, y down, z forward
/// ```
struct CameraConfig {
    bool layout_stated = false;
    FrameLayout layout = FrameLayout::kSideBySide;
    bool swapped = false;
    bool left_flipped = false;
    bool right_flipped = false;
    std::vector<std::string> iio;
    std::array<double, 9> imu_to_camera = {1, 0, 0, 0, 1, 0, 0, 0, 1};
};

/// Reads a configuration from its text.
/// @return kInvalidFile, with the key and what it may be
Result<CameraConfig> parseCameraConfig(const std::string& yaml);

/// The configuration of a camera below `folder`, its own file before the default one; the default
/// values when there is neither. `serial` is the device's text.
/// @return kInvalidFile, with the file's name
Result<CameraConfig> loadCameraConfig(const std::string& folder, const std::string& serial);

}  // namespace kova::camera
