#include "camera/recording/replay_source.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace kova::camera {

namespace {

class MachineClock : public ReplayClock {
public:
    std::int64_t nowNs() override {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }
    void sleepNs(std::int64_t duration_ns) override {
        std::this_thread::sleep_for(std::chrono::nanoseconds(duration_ns));
    }
};

}  // namespace

Result<std::unique_ptr<ReplaySource>> ReplaySource::open(const std::string& path,
                                                         std::shared_ptr<ReplayClock> clock) {
    auto reader = RecordingReader::open(path);
    if (!reader.ok())
        return reader.status();
    if (!clock)
        clock = std::make_shared<MachineClock>();
    return std::unique_ptr<ReplaySource>(
        new ReplaySource(std::move(reader.value()), std::move(clock)));
}

ReplaySource::ReplaySource(std::unique_ptr<RecordingReader> reader,
                           std::shared_ptr<ReplayClock> clock)
    : reader_(std::move(reader)),
      clock_(std::move(clock)),
      has_imu_(reader_->imuSampleCount() > 0) {}

void ReplaySource::seek(int index) {
    seek_ = std::clamp(index, 0, frameCount() - 1);
}

Status ReplaySource::startImu() {
    if (has_imu_)
        return {};
    return {ErrorCode::kImuMissing,
            "the recording " + reader_->path() + " has no inertial samples"};
}

bool ReplaySource::waitUntilDue(int next, bool at_once) {
    std::int64_t now = clock_->nowNs();
    if (at_once || next == 0) {
        due_ns_ = now;
        return true;
    }
    const std::int64_t from = reader_->timeNs(next - 1);
    const std::int64_t to = reader_->timeNs(next);
    // Unsigned, since the times of a damaged file may be too far apart for a signed difference.
    std::int64_t gap_ns = 0;
    if (to > from)
        gap_ns = static_cast<std::int64_t>(
            std::min(static_cast<std::uint64_t>(to) - static_cast<std::uint64_t>(from),
                     static_cast<std::uint64_t>(kLongestGapNs)));
    const std::int64_t due = due_ns_ + gap_ns;
    if (now < due) {
        const std::int64_t wait_ns = std::min(due - now, kLongestWaitNs);
        clock_->sleepNs(wait_ns);
        now += wait_ns;
        if (now < due)
            return false;
    }
    // A little late is made up for, so that the pace does not drift; more than a frame is not, so
    // that frames do not come in a rush afterwards.
    due_ns_ = now - due > gap_ns ? now : due;
    return true;
}

Status ReplaySource::grab(RawFrame& frame) {
    const int wanted = seek_.exchange(kNoSeek);
    if (wanted != kNoSeek)
        next_ = wanted;
    if (next_ >= frameCount())
        return {ErrorCode::kEndOfFile, "the recording " + reader_->path() + " is at its end"};

    const bool paused = clock_->nowNs() - last_call_ns_ > kPauseNs;
    const bool at_once = !started_ || wanted != kNoSeek || paused || !paced_;
    started_ = true;
    const bool due = waitUntilDue(next_, at_once);
    last_call_ns_ = clock_->nowNs();
    if (!due)
        return {ErrorCode::kNoNewFrame, "the next frame is not due yet"};

    const int index = next_++;
    const Status status = reader_->read(index, frame);
    position_ = index;
    last_call_ns_ = clock_->nowNs();
    return status;
}

}  // namespace kova::camera
