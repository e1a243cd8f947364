#include "camera/base/status.h"

namespace kova::camera {

RESULT_CODE toResultCode(ErrorCode code) {
    switch (code) {
        case ErrorCode::kOk:
            return RESULT_OK;
        case ErrorCode::kInvalidArgument:
        case ErrorCode::kInvalidCamera:
            return RESULT_INVALID_CAMERA;
        case ErrorCode::kNotOpen:
            return RESULT_CAMERA_NOT_OPEN;
        case ErrorCode::kInvalidMode:
            return RESULT_INVALID_RESOLUTION_MODE;
        case ErrorCode::kNoNewFrame:
            return RESULT_NOT_NEW_FRAME;
        case ErrorCode::kEndOfFile:
            return RESULT_END_OF_KOVA_FILE;
        case ErrorCode::kCannotOpenFile:
            return RESULT_CAN_NOT_OPEN_FILE;
        case ErrorCode::kWriteFailed:
            return RESULT_FILE_WRITE_FAILED;
        case ErrorCode::kInvalidFile:
            return RESULT_INVALID_KOVA_FILE;
        case ErrorCode::kImuMissing:
            return RESULT_INVALID_IMU;
        case ErrorCode::kCalibrationMisfit:
            return RESULT_CALIBRATION_CHECK_FAILED;
        case ErrorCode::kNotCalibrated:
            return RESULT_CALIBRATION_NEEDED;
    }
    return RESULT_INVALID_CAMERA;
}

}  // namespace kova::camera
