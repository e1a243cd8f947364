#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "camera/base/status.h"
#include "camera/sources/frame.h"

namespace kova::camera {

/// Largest width and height of a picture, both eyes together [px].
constexpr int kMaxPictureSide = 16384;

/// Bytes of one raw picture of width x height px; rows without padding. 0 for impossible sizes.
std::size_t rawFrameBytes(PixelFormat format, int width, int height);

/// Says in words what is impossible about a stream: sizes, an odd width of what is split or
/// subsampled, a layout that the pixel format cannot carry.
/// @return kInvalidArgument
Status checkStream(const StreamInfo& stream);

/// Names in recordings, on the command line and for people: "side_by_side", "top_bottom",
/// "interleaved"; "raw", "jpeg", "png", "zstd"; "grey", "yuyv", "uyvy", "nv12", "y16", "rgb".
const char* nameOf(FrameLayout layout);
const char* nameOf(FrameCodec codec);
const char* nameOf(PixelFormat format);

/// The value with a name; none when there is no such name.
std::optional<FrameLayout> frameLayoutFromName(const std::string& name);
std::optional<FrameCodec> frameCodecFromName(const std::string& name);
std::optional<PixelFormat> pixelFormatFromName(const std::string& name);

}  // namespace kova::camera
