#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "camera/sources/camera_config.h"
#include "camera/sources/frame.h"
#include "camera/sources/v4l2_system.h"
#include "sdk/modes.h"

namespace kova::camera {

/// One way in which a device delivers frames.
struct V4l2Mode {
    std::uint32_t fourcc = 0;
    int width = 0;   ///< [px] of the whole picture
    int height = 0;  ///< [px] of the whole picture
    double min_fps = 0;
    double max_fps = 0;  ///< equal to min_fps for a discrete rate
};

/// What is known of a device before it streams.
struct V4l2Device {
    std::string node;    ///< "/dev/video0"
    std::string name;    ///< the driver's name of the card
    std::string serial;  ///< as the device states it; may be empty
    std::string hardware_version;
    std::vector<V4l2Mode> modes;
};

/// Codec and pixels of a V4L2 format; false for one that is not supported.
bool describeFormat(std::uint32_t fourcc, FrameCodec& codec, PixelFormat& pixels);

/// Text of a four-character code, "MJPG".
std::string fourccText(std::uint32_t fourcc);

/// What a video node is to us.
enum class NodeKind {
    kCamera,
    kOther,      ///< something else, or gone
    kForbidden,  ///< the user may not open it
};

/// What a user may do about kForbidden.
constexpr const char* kPermissionAdvice =
    "add yourself to the group 'video' (sudo usermod -aG video $USER) and log in again";

/// Asks a node for its name and all modes in supported formats.
NodeKind queryDevice(V4l2System& system, const std::string& node, V4l2Device& device);

/// A device's mode that delivers both eyes of a resolution mode, and how they lie in it.
struct StereoMatch {
    V4l2Mode mode;
    StreamInfo stream;
};

/// All ways in which a device can deliver `wanted`, the preferred one first: uncompressed colour,
/// uncompressed grey, JPEG. Without a stated layout a picture twice as wide is side by side, one
/// twice as high top-bottom; interleaved eyes must be stated. Empty when it cannot.
std::vector<StereoMatch> matchMode(const V4l2Device& device, const CameraConfig& config,
                                   const bino::ResolutionFpsMode& wanted);

/// The model code of a stereo device: P with an inertial unit, R without; 1 where it offers a mode
/// of 100 frames per second or more, else 0. False when it offers no mode at all.
bool modelOf(const V4l2Device& device, const CameraConfig& config, bino::CAMERA_MODEL& model);

/// The number for a serial text: its decimal value where it is one, else a checksum of it.
std::uint32_t serialNumber(const std::string& serial);

}  // namespace kova::camera
