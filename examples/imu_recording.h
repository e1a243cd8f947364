#pragma once

#include <string>
#include <vector>

#include "sdk/imu_data.h"

namespace kova::examples {

/// The inertial samples of a recording, or why there are none.
struct ImuRecording {
    std::vector<imu::IMUData> samples;  ///< in the order of their times
    std::string error;                  ///< empty: samples is not
};

/// Reads the table `imu` of a recorded .kova file, which is an SQLite database:
/// t_ns; ax, ay, az [m/s²]; gx, gy, gz [rad/s]; mx, my, mz [µT].
ImuRecording readImuRecording(const std::string& path);

}  // namespace kova::examples
