#pragma once

#include <cstdint>

namespace kova::camera {

/// Numbers of the recording format; docs/recording-format.md describes it.
constexpr std::int32_t kRecordingApplicationId = 0x6B6F7661;  ///< "kova"
constexpr int kRecordingMajorVersion = 1;
constexpr int kRecordingMinorVersion = 0;
/// `user_version` is 1000 * major + minor.
constexpr int kRecordingVersion = 1000 * kRecordingMajorVersion + kRecordingMinorVersion;
/// Largest picture of a frame [bytes].
constexpr int kMaxFrameBytes = 128 << 20;

/// What lost frames.
enum class DropCause {
    kCamera,    ///< gaps in the camera's own count
    kRecorder,  ///< the recorder was too slow
    kDamaged,   ///< arrived damaged
};
const char* nameOf(DropCause cause);

}  // namespace kova::camera
