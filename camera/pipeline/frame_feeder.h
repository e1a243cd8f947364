#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "camera/base/status.h"
#include "camera/sources/decode.h"
#include "camera/sources/source.h"

namespace kova::camera {

/// A frame taken from a source and decoded.
struct DecodedFrame {
    StereoPair pair;
    std::int64_t t_ns = 0;
    std::int64_t sequence = 0;
    double exposure_us = 0;
    std::vector<ImuSample> imu;       ///< since the frame delivered before
    int position = -1;                ///< index in the recording, -1 for a live source
    std::int64_t dropped_frames = 0;  ///< since the frame delivered before
};

/// Takes frames from a source and decodes them on a thread of its own, one frame ahead, so that
/// capture and decoding overlap with the processing of the frame before. A recording waits until
/// its frame is taken; of a live source the newest frame wins and the rest is counted as dropped.
class FrameFeeder {
public:
    explicit FrameFeeder(std::unique_ptr<Source> source, Eye colour_eye = Eye::kLeft);
    ~FrameFeeder();
    FrameFeeder(const FrameFeeder&) = delete;
    FrameFeeder& operator=(const FrameFeeder&) = delete;

    Source& source() { return *source_; }

    /// The eye whose colours come along; frames that were decoded already still have the other's.
    /// Any thread.
    void setColourEye(Eye eye) { decoder_.setColourEye(eye); }

    /// Takes the next frame. Its buffers are exchanged with those of `frame`, so pass the same one
    /// again. Waits until a frame is there or the source has said that nothing is due; of a live
    /// source at most 100 ms, whatever its driver does.
    /// @return kNoNewFrame, kEndOfFile, kInvalidCamera
    Status take(DecodedFrame& frame);

    /// The next frame taken is this one of the recording. Never waits for a frame.
    void seek(int index);

    /// Index of the recorded frame taken, or skipped because it is damaged, last; -1 before the
    /// first.
    int position();

private:
    void run();
    /// One frame or the reason why there is none, into `back_`; without the mutex.
    Status fetch();

    std::unique_ptr<Source> source_;
    FrameDecoder decoder_;
    RawFrame raw_;       // the thread's own
    DecodedFrame back_;  // the thread's own

    std::mutex mutex_;
    std::condition_variable changed_;
    bool stop_ = false;
    bool ready_ = false;  // slot_ holds a frame
    int position_ = -1;
    DecodedFrame slot_;
    Status failure_;                  // end of file or lost camera
    std::uint64_t empty_rounds_ = 0;  // times the source had nothing
    bool seek_pending_ = false;
    int seek_index_ = 0;
    std::int64_t dropped_seen_ = 0;
    std::thread thread_;
};

}  // namespace kova::camera
