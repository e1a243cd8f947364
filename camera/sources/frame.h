#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace kova::camera {

/// How both eyes lie in one picture of a stream.
enum class FrameLayout {
    kSideBySide,   ///< left eye left
    kTopBottom,    ///< left eye on top
    kInterleaved,  ///< left eye in the Y bytes, right eye in the UV bytes of a YUYV picture
};

/// How the bytes of a frame are packed.
enum class FrameCodec {
    kRaw,   ///< pixels as pixel_format says
    kJpeg,  ///< the camera's own JPEG, untouched
    kPng,
    kZstd,  ///< raw pixels, compressed; in recordings only
};

/// Pixels of a raw frame. Meaningless for kJpeg and kPng, whose files say it themselves.
enum class PixelFormat { kGrey, kYuyv, kUyvy, kNv12, kY16, kRgb };

/// What a source yields: constant while it is open.
struct StreamInfo {
    FrameLayout layout = FrameLayout::kSideBySide;
    FrameCodec codec = FrameCodec::kRaw;
    PixelFormat pixel_format = PixelFormat::kGrey;
    int width = 0;   ///< [px] of the whole picture, both eyes
    int height = 0;  ///< [px] of the whole picture
    double nominal_fps = 0;
    bool swapped = false;       ///< what lies in the left eye's place is the right eye
    bool left_flipped = false;  ///< the left eye's picture is turned by 180 degrees
    bool right_flipped = false;

    /// Size of one eye's picture [px].
    int eyeWidth() const { return layout == FrameLayout::kSideBySide ? width / 2 : width; }
    int eyeHeight() const { return layout == FrameLayout::kTopBottom ? height / 2 : height; }
};

/// The camera behind a source.
struct CameraInfo {
    std::int32_t model = 0;  ///< a CAMERA_MODEL
    std::string name;        ///< for people
    std::uint32_t serial_number = 0;
    std::string hardware_version;
    bool has_imu = false;
};

/// One sample of an inertial unit in the left camera's frame (x right, y down, z forward).
struct ImuSample {
    std::int64_t t_ns = 0;          ///< on the clock of the frames
    std::array<float, 3> accel{};   ///< specific force [m/s²]; level and at rest (0, -9.81, 0)
    std::array<float, 3> gyro{};    ///< [rad/s]
    std::array<float, 3> magnet{};  ///< [µT]; zero where there is none
};

/// One frame as a source yields it, before decoding and rectification.
struct RawFrame {
    std::int64_t t_ns = 0;           ///< start of exposure, monotonic clock
    std::int64_t sequence = 0;       ///< the camera's own count; gaps are frames lost
    double exposure_us = 0;          ///< 0 when unknown
    std::vector<std::uint8_t> data;  ///< as StreamInfo says; the memory is reused
    std::vector<ImuSample> imu;      ///< since the frame before
};

}  // namespace kova::camera
