#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "camera/recording/recording_reader.h"
#include "camera/sources/source.h"

namespace kova::camera {

/// The clock that paces replay; tests give it one of their own.
class ReplayClock {
public:
    virtual ~ReplayClock() = default;
    virtual std::int64_t nowNs() = 0;
    virtual void sleepNs(std::int64_t duration_ns) = 0;
};

/// Replays a recording.
///
/// The recorded pace is kept when processing is fast enough, and every frame is shown when it is
/// not. Not paced are the first grab after opening, after a seek and after a pause, that is when
/// grab() was not called for longer than kPauseNs; so stepping is not paced either. A gap in the
/// recording is replayed as kLongestGapNs at most. A damaged frame is skipped with kNoNewFrame and
/// counted in droppedFrames(); the position moves over it.
///
/// seek(), setPaced() and position() may be called from any thread.
class ReplaySource : public Source {
public:
    static constexpr std::int64_t kLongestWaitNs = 100'000'000;
    static constexpr std::int64_t kLongestGapNs = 1'000'000'000;
    static constexpr std::int64_t kPauseNs = 250'000'000;

    /// @param clock  null: the machine's own
    /// @return as RecordingReader::open()
    static Result<std::unique_ptr<ReplaySource>> open(const std::string& path,
                                                      std::shared_ptr<ReplayClock> clock = nullptr);

    const StreamInfo& stream() const override { return reader_->stream(); }
    const CameraInfo& camera() const override { return reader_->camera(); }
    const StereoCalibration& calibration() const override { return reader_->calibration(); }
    Status grab(RawFrame& frame) override;
    std::int64_t droppedFrames() const override { return reader_->damagedFrames(); }
    Status startImu() override;

    bool isRecording() const override { return true; }
    int frameCount() const override { return reader_->frameCount(); }
    int position() const override { return position_; }
    void seek(int index) override;
    void setPaced(bool paced) override { paced_ = paced; }

    RecordingReader& reader() { return *reader_; }

private:
    ReplaySource(std::unique_ptr<RecordingReader> reader, std::shared_ptr<ReplayClock> clock);
    /// @return false when the next frame is not due yet
    bool waitUntilDue(int next, bool at_once);

    static constexpr int kNoSeek = -1;

    std::unique_ptr<RecordingReader> reader_;
    std::shared_ptr<ReplayClock> clock_;
    std::atomic<int> position_{-1};
    std::atomic<int> seek_{kNoSeek};
    std::atomic<bool> paced_{true};
    int next_ = 0;
    bool started_ = false;
    std::int64_t due_ns_ = 0;  ///< when the frame grabbed last was due, on clock_
    std::int64_t last_call_ns_ = 0;
    bool has_imu_ = false;
};

}  // namespace kova::camera
