#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "camera/base/status.h"
#include "camera/recording/recording_writer.h"
#include "camera/sources/frame.h"

namespace kova::camera {

/// Turns a source's frames into what a recording stores. Keeps its buffers.
class FrameEncoder {
public:
    FrameEncoder();
    ~FrameEncoder();
    FrameEncoder(const FrameEncoder&) = delete;
    FrameEncoder& operator=(const FrameEncoder&) = delete;

    /// @return kInvalidArgument when PNG cannot hold the stream's pixels
    Status configure(const StreamInfo& stream, RecordingCompression compression, int zstd_level);

    FrameCodec storedCodec() const;

    /// @param image  receives the address of the bytes to store: `data` itself or a buffer that is
    ///               valid until the next call
    /// @return kInvalidArgument for data that does not fit the stream
    Status encode(const std::vector<std::uint8_t>& data, const std::vector<std::uint8_t>*& image);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kova::camera
