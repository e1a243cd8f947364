#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "camera/calibration/stereo_calibration.h"
#include "camera/sources/frame.h"
#include "camera/sources/stream_format.h"

/// Small streams, frames and calibrations for tests of recordings and what reads them.
namespace kova::test {

/// A calibration that passes its checks, for pictures of one eye of this size.
inline camera::StereoCalibration smallCalibration(int width, int height) {
    camera::StereoCalibration c;
    c.width = width;
    c.height = height;
    c.left = {
        0.9 * width, 0.9 * width, 0.5 * width, 0.5 * height, camera::LensModel::kRadialTangential,
        {}};
    c.right = c.left;
    c.translation_mm = {-60, 0, 0};
    return c;
}

inline camera::StreamInfo smallStream(
    int width = 64, int height = 24, camera::PixelFormat format = camera::PixelFormat::kGrey,
    camera::FrameLayout layout = camera::FrameLayout::kSideBySide) {
    camera::StreamInfo stream;
    stream.layout = layout;
    stream.pixel_format = format;
    stream.width = width;
    stream.height = height;
    stream.nominal_fps = 30;
    return stream;
}

inline camera::CameraInfo smallCamera() {
    camera::CameraInfo camera;
    camera.model = 101;
    camera.name = "Test camera";
    camera.serial_number = 4000000001u;
    camera.hardware_version = "1.2";
    camera.has_imu = true;
    return camera;
}

/// Bytes that differ from each other and from frame to frame, from a fixed generator.
inline std::vector<std::uint8_t> noise(std::size_t bytes, std::uint32_t seed) {
    std::vector<std::uint8_t> data(bytes);
    std::uint32_t state = seed * 2654435761u + 1;
    for (std::uint8_t& byte : data) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return data;
}

/// Frame `i` of a stream at 30 frames per second that began at `start_ns`, with three inertial
/// samples since the frame before.
inline camera::RawFrame smallFrame(const camera::StreamInfo& stream, int i,
                                   std::int64_t start_ns = 1000000000) {
    camera::RawFrame frame;
    frame.t_ns = start_ns + i * 33333333LL;
    frame.sequence = 100 + i;
    frame.exposure_us = 500 + i;
    frame.data = noise(camera::rawFrameBytes(stream.pixel_format, stream.width, stream.height),
                       static_cast<std::uint32_t>(i));
    for (int k = 2; k >= 0; --k) {
        camera::ImuSample sample;
        sample.t_ns = frame.t_ns - k * 10000000LL;
        sample.accel = {0.5f * static_cast<float>(i), -9.81f, 0.25f};
        sample.gyro = {0.125f, 0.5f, -0.75f};
        sample.magnet = {20, 0, static_cast<float>(k)};
        frame.imu.push_back(sample);
    }
    return frame;
}

}  // namespace kova::test
