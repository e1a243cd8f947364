#pragma once

#include <cstdint>
#include <string>

namespace kova {

/// Status of a library call; 0 is success. The underlying type is fixed, so that any 32-bit value
/// is a legal argument of result_code2str(). `RESULT_UNUSED_5` is reserved and has no text.
enum RESULT_CODE : std::int32_t {
    RESULT_OK = 0,
    RESULT_INVALID_GPU = 1,
    RESULT_INVALID_CAMERA = 2,
    RESULT_CAMERA_NOT_OPEN = 3,
    RESULT_INVALID_RESOLUTION_MODE = 4,
    RESULT_UNUSED_5 = 5,
    RESULT_GPU_MEMORY_NOT_ENOUGH = 6,
    RESULT_NOT_NEW_FRAME = 7,
    RESULT_END_OF_KOVA_FILE = 8,
    RESULT_CAN_NOT_OPEN_FILE = 9,
    RESULT_FILE_WRITE_FAILED = 10,
    RESULT_INVALID_KOVA_FILE = 11,
    RESULT_INVALID_IMU_DATA_TYPE = 12,
    RESULT_INVALID_IMU = 13,
    RESULT_INVALID_IMU_SAMPLING_RATE = 14,
    RESULT_END_OF_IMU_FILE = 15,
    RESULT_INVALID_IMU_FILE = 16,
    RESULT_INVALID_PCD_FILE = 17,
    RESULT_INVALID_PLY_FILE = 18,
    RESULT_INVALID_STL_FILE = 19,
    RESULT_CALIBRATION_CHECK_FAILED = 20,
    RESULT_CALIBRATION_NEEDED = 21,
    RESULT_POINT_CLOUD_IS_SAVING = 22,
    RESULT_INVALID_POINT_CLOUD_TYPE = 23,
};

/// Text of a result code in English; empty for code 5 and for every value outside 0..23.
std::string result_code2str(RESULT_CODE code);

}  // namespace kova
