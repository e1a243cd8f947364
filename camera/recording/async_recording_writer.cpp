#include "camera/recording/async_recording_writer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace kova::camera {

namespace {
constexpr std::chrono::milliseconds kLongestSilence{300};
}

Result<std::unique_ptr<AsyncRecordingWriter>> AsyncRecordingWriter::create(
    const std::string& path, const StreamInfo& stream, const CameraInfo& camera,
    const StereoCalibration& calibration, const RecordingOptions& options,
    std::size_t queue_frames) {
    auto writer = RecordingWriter::create(path, stream, camera, calibration, options);
    if (!writer.ok())
        return writer.status();
    if (queue_frames == 0)
        queue_frames =
            static_cast<std::size_t>(std::max(30.0, std::ceil(1.5 * stream.nominal_fps)));
    return std::make_unique<AsyncRecordingWriter>(std::move(writer.value()), queue_frames);
}

AsyncRecordingWriter::AsyncRecordingWriter(std::unique_ptr<RecordingWriter> writer,
                                           std::size_t queue_frames)
    : writer_(std::move(writer)), capacity_(queue_frames), thread_([this] { run(); }) {}

AsyncRecordingWriter::~AsyncRecordingWriter() {
    (void)finish();
}

Status AsyncRecordingWriter::push(const RawFrame& frame) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!failure_.ok())
            return failure_;
        ++progress_.received;
        if (queue_.size() >= capacity_ || stopping_) {
            ++progress_.dropped;
            ++lost_since_last_;
            return {};
        }
        if (lost_since_last_ > 0)
            gaps_.push_back({frame.t_ns, std::exchange(lost_since_last_, 0), DropCause::kRecorder});
        if (spare_.empty()) {
            queue_.push_back(frame);
        } else {
            queue_.push_back(std::move(spare_.back()));
            spare_.pop_back();
            queue_.back() = frame;
        }
    }
    wake_.notify_one();
    return {};
}

void AsyncRecordingWriter::addDrops(std::int64_t t_ns, std::int64_t count, DropCause cause) {
    const std::lock_guard<std::mutex> lock(mutex_);
    gaps_.push_back({t_ns, count, cause});
}

Status AsyncRecordingWriter::writeOne(const RawFrame& frame) {
    const Status status = writer_->write(frame);
    if (status.code() != ErrorCode::kInvalidArgument)
        return status;
    // A frame that does not fit is lost; the recording goes on.
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++progress_.dropped;
    }
    return writer_->addDrops(frame.t_ns, 1, DropCause::kDamaged);
}

void AsyncRecordingWriter::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait_for(lock, kLongestSilence, [this] { return stopping_ || !queue_.empty(); });
        if (queue_.empty() && stopping_)
            break;
        std::vector<Gap> gaps;
        gaps.swap(gaps_);
        const bool silent = queue_.empty();
        RawFrame frame;
        if (!silent) {
            frame = std::move(queue_.front());
            queue_.pop_front();
        }
        lock.unlock();
        // A camera that went silent must not keep its last frames unsafe.
        Status status = silent ? writer_->flush() : Status();
        for (const Gap& gap : gaps)
            if (status.ok())
                status = writer_->addDrops(gap.t_ns, gap.count, gap.cause);
        if (!silent && status.ok())
            status = writeOne(frame);
        lock.lock();
        progress_.written = writer_->frames();
        progress_.bytes = writer_->bytes();
        if (!silent)
            spare_.push_back(std::move(frame));
        if (!status.ok()) {
            failure_ = status;
            queue_.clear();
            break;
        }
    }
}

Status AsyncRecordingWriter::finish() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    if (thread_.joinable())
        thread_.join();
    Status status = failure_;
    for (const Gap& gap : gaps_)
        if (status.ok())
            status = writer_->addDrops(gap.t_ns, gap.count, gap.cause);
    gaps_.clear();
    const Status closed = writer_->finish();
    progress_.written = writer_->committedFrames();
    return status.ok() ? closed : status;
}

RecordingProgress AsyncRecordingWriter::progress() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    RecordingProgress progress = progress_;
    progress.queued = queue_.size();
    return progress;
}

}  // namespace kova::camera
