#pragma once

#include <string>
#include <utility>

#include "sdk/result_code.h"

namespace kova::camera {

/// What went wrong, for code; the message is for people.
enum class ErrorCode {
    kOk,
    kInvalidArgument,  ///< the caller's mistake
    kInvalidCamera,    ///< no such camera, busy, unplugged, silent
    kNotOpen,
    kInvalidMode,  ///< the camera lacks the mode
    kNoNewFrame,   ///< nothing due yet, or a damaged frame skipped
    kEndOfFile,
    kCannotOpenFile,  ///< missing, no permission, a folder
    kWriteFailed,
    kInvalidFile,  ///< foreign, newer, damaged, incomplete
    kImuMissing,
    kCalibrationMisfit,  ///< the calibration does not fit the pictures
    kNotCalibrated,
};

/// Result of an operation that can fail. The message says what failed, on which input, and what to
/// do about it; it is one line without a full stop at the end.
class [[nodiscard]] Status {
public:
    Status() = default;
    Status(ErrorCode code, std::string message) : code_(code), message_(std::move(message)) {}

    bool ok() const { return code_ == ErrorCode::kOk; }
    ErrorCode code() const { return code_; }
    const std::string& message() const { return message_; }

private:
    ErrorCode code_ = ErrorCode::kOk;
    std::string message_;
};

/// A value, or the reason why there is none. T needs a default value.
template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : value_(std::move(value)) {}          // NOLINT(google-explicit-constructor)
    Result(Status status) : status_(std::move(status)) {}  // NOLINT(google-explicit-constructor)

    bool ok() const { return status_.ok(); }
    const Status& status() const { return status_; }
    T& value() { return value_; }
    const T& value() const { return value_; }

private:
    Status status_;
    T value_{};
};

/// The result code that stands for an error at the border of the library.
RESULT_CODE toResultCode(ErrorCode code);

}  // namespace kova::camera
