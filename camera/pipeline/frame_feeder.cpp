#include "camera/pipeline/frame_feeder.h"

#include <chrono>
#include <iterator>
#include <utility>

#include "camera/base/log.h"

namespace kova::camera {

namespace {
constexpr std::chrono::milliseconds kLongestWait{100};
}

FrameFeeder::FrameFeeder(std::unique_ptr<Source> source, Eye colour_eye)
    : source_(std::move(source)), decoder_(source_->stream()) {
    decoder_.setColourEye(colour_eye);
    thread_ = std::thread([this] { run(); });
}

FrameFeeder::~FrameFeeder() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

Status FrameFeeder::take(DecodedFrame& frame) {
    std::unique_lock<std::mutex> lock(mutex_);
    const std::uint64_t rounds = empty_rounds_;
    const auto decided = [&] {
        return (ready_ && !seek_pending_) || (!failure_.ok() && !seek_pending_) ||
               empty_rounds_ != rounds || stop_;
    };
    // A driver may keep a live source waiting in a system call; a recording's next frame is sure to
    // come, and a caller that steps through it wants that frame.
    if (source_->isRecording())
        changed_.wait(lock, decided);
    else
        changed_.wait_for(lock, kLongestWait, decided);
    if (ready_ && !seek_pending_) {
        std::swap(frame, slot_);
        ready_ = false;
        position_ = frame.position;
        slot_.imu.clear();
        lock.unlock();
        changed_.notify_all();
        return {};
    }
    if (!failure_.ok() && !seek_pending_)
        return failure_;
    return {ErrorCode::kNoNewFrame, "no frame is due"};
}

void FrameFeeder::seek(int index) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        seek_pending_ = true;
        seek_index_ = index;
    }
    changed_.notify_all();
}

int FrameFeeder::position() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return position_;
}

Status FrameFeeder::fetch() {
    if (Status s = source_->grab(raw_); !s.ok())
        return s;
    back_.t_ns = raw_.t_ns;
    back_.sequence = raw_.sequence;
    back_.exposure_us = raw_.exposure_us;
    back_.position = source_->isRecording() ? source_->position() : -1;
    back_.imu = raw_.imu;
    const std::int64_t dropped = source_->droppedFrames();
    back_.dropped_frames = dropped - dropped_seen_;
    dropped_seen_ = dropped;
    Status s = decoder_.decode(raw_, back_.pair);
    if (!s.ok())
        logWarning("pipeline", s.message());
    return s;
}

void FrameFeeder::run() {
    const bool recording = source_->isRecording();
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stop_) {
        if (seek_pending_) {
            seek_pending_ = false;
            ready_ = false;
            failure_ = {};
            slot_.imu.clear();
            source_->seek(seek_index_);
        }
        const bool idle = !failure_.ok() || (recording && ready_);
        if (idle) {
            changed_.wait(lock, [&] {
                return stop_ || seek_pending_ || (failure_.ok() && !(recording && ready_));
            });
            continue;
        }
        lock.unlock();
        const Status status = fetch();
        lock.lock();
        if (stop_ || seek_pending_)
            continue;  // what was fetched is not wanted any more
        if (status.ok()) {
            if (ready_) {  // live only: the frame in the slot was never taken
                back_.dropped_frames += slot_.dropped_frames + 1;
                std::vector<ImuSample> imu = std::move(slot_.imu);
                imu.insert(imu.end(), back_.imu.begin(), back_.imu.end());
                back_.imu = std::move(imu);
            }
            std::swap(slot_, back_);
            ready_ = true;
        } else if (status.code() == ErrorCode::kNoNewFrame) {
            ++empty_rounds_;
            if (recording)  // else a damaged last frame would never be passed
                position_ = source_->position();
        } else {
            failure_ = status;
            if (status.code() != ErrorCode::kEndOfFile)
                logError("pipeline", status.message());
        }
        changed_.notify_all();
    }
}

}  // namespace kova::camera
