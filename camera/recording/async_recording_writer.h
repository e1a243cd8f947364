#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "camera/recording/recording_writer.h"

namespace kova::camera {

struct RecordingProgress {
    std::int64_t received = 0;  ///< frames handed over
    std::int64_t written = 0;
    std::int64_t dropped = 0;  ///< by the recorder: the queue was full, or the frame was refused
    std::int64_t bytes = 0;    ///< of the written pictures
    std::size_t queued = 0;
};

/// Records a live source: frames are queued and written by a thread of its own, so that the disk
/// never holds up the camera. The queue holds 1.5 s of frames; when it is full the new frame is
/// dropped, counted, and the gap noted in the recording.
class AsyncRecordingWriter {
public:
    /// @param queue_frames  length of the queue; 0: 1.5 s at the stream's rate, at least 30
    /// @return as RecordingWriter::create()
    static Result<std::unique_ptr<AsyncRecordingWriter>> create(
        const std::string& path, const StreamInfo& stream, const CameraInfo& camera,
        const StereoCalibration& calibration, const RecordingOptions& options = {},
        std::size_t queue_frames = 0);
    /// Takes over a writer that was made already.
    AsyncRecordingWriter(std::unique_ptr<RecordingWriter> writer, std::size_t queue_frames);
    /// Finishes, if finish() was not called.
    ~AsyncRecordingWriter();
    AsyncRecordingWriter(const AsyncRecordingWriter&) = delete;
    AsyncRecordingWriter& operator=(const AsyncRecordingWriter&) = delete;

    /// Queues a copy of a frame. Any thread; never waits for the disk.
    /// @return kWriteFailed once the disk refused (full, unplugged); the recording has ended then
    Status push(const RawFrame& frame);

    /// Notes frames that were lost before this time elsewhere than in the queue.
    void addDrops(std::int64_t t_ns, std::int64_t count, DropCause cause);

    /// Writes what is queued, and closes the file.
    Status finish();

    RecordingProgress progress() const;

private:
    struct Gap {
        std::int64_t t_ns = 0;
        std::int64_t count = 0;
        DropCause cause = DropCause::kRecorder;
    };

    void run();
    Status writeOne(const RawFrame& frame);

    std::unique_ptr<RecordingWriter> writer_;  ///< the thread's alone while it runs
    const std::size_t capacity_;

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<RawFrame> queue_;
    std::vector<RawFrame> spare_;  ///< their memory is used again
    std::vector<Gap> gaps_;
    std::int64_t lost_since_last_ = 0;
    RecordingProgress progress_;
    Status failure_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace kova::camera
