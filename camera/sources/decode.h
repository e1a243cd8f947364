#pragma once

#include <memory>

#include "camera/base/image.h"
#include "camera/base/status.h"
#include "camera/sources/frame.h"

namespace kova::camera {

/// Both eyes of a frame, upright and in their places, size of one eye.
struct StereoPair {
    Image<std::uint8_t> left;
    Image<std::uint8_t> right;
    Image<Rgba> left_colour;   ///< 0 x 0 for a grey camera, and when not asked for
    Image<Rgba> right_colour;  ///< the same
};

enum class Eye { kLeft, kRight };

/// Decodes the frames of one stream: unpacks the codec and pixel format, splits the layout, undoes
/// swapped and flipped eyes. Keeps its buffers.
class FrameDecoder {
public:
    explicit FrameDecoder(const StreamInfo& stream);
    ~FrameDecoder();
    FrameDecoder(const FrameDecoder&) = delete;
    FrameDecoder& operator=(const FrameDecoder&) = delete;

    /// The eye whose colours are decoded too, of the frames from now on; the left one until then.
    /// Only one, since colours cost more than brightness. Any thread.
    void setColourEye(Eye eye);

    /// @return kNoNewFrame for a damaged frame (cut JPEG, wrong number of bytes or size), in words
    Status decode(const RawFrame& frame, StereoPair& pair);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kova::camera
