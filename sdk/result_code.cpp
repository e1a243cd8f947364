#include "sdk/result_code.h"

#include <array>
#include <cstddef>

namespace kova {

std::string result_code2str(RESULT_CODE code) {
    static constexpr std::array<const char*, 24> kTexts = {
        "OK",
        "Invalid GPU",
        "Invalid camera",
        "Camera is not open",
        "Invalid resolution mode",
        "",
        "GPU memory is not enough",
        "Not a new frame",
        "End of .kova file",
        "Can not open file",
        "File write failed",
        ".kova file is invalid",
        "IMU data type is invalid",
        "IMU is invalid",
        "IMU sampling rate is invalid",
        "End of .imu file",
        ".imu file is invalid",
        ".pcd file is invalid",
        ".ply file is invalid",
        ".stl file is invalid",
        "Calibration check failed, try to use the camera in normal environment",
        "Need to do calibration again",
        "Point cloud is saving, cannot save another one at the same time",
        "Point cloud type is invalid",
    };
    // Unsigned, so that negative values are out of range too.
    const auto index = static_cast<std::uint32_t>(code);
    return index < kTexts.size() ? kTexts[index] : "";
}

}  // namespace kova
