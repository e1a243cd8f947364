#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "camera/sources/source.h"

namespace kova::test {

/// A source whose frames and failures a test hands out one by one. Its pictures are grey, side by
/// side, and all pixels have the frame's number as value.
class FakeSource : public camera::Source {
public:
    static constexpr int kWidth = 64;  // of one eye
    static constexpr int kHeight = 32;

    explicit FakeSource(int recorded_frames = 0) : recorded_frames_(recorded_frames) {
        stream_.width = 2 * kWidth;
        stream_.height = kHeight;
        stream_.nominal_fps = 30;
        calibration_.width = kWidth;
        calibration_.height = kHeight;
        calibration_.left = {60, 60, kWidth / 2.0, kHeight / 2.0, {}, {}};
        calibration_.right = calibration_.left;
        calibration_.translation_mm = {-100, 0, 0};
        calibration_.rectified = true;
    }

    const camera::StreamInfo& stream() const override { return stream_; }
    const camera::CameraInfo& camera() const override { return camera_; }
    const camera::StereoCalibration& calibration() const override { return calibration_; }
    bool isRecording() const override { return recorded_frames_ > 0; }
    int frameCount() const override { return recorded_frames_; }
    int position() const override { return position_; }
    void seek(int index) override { next_ = index; }
    std::int64_t droppedFrames() const override { return dropped; }

    camera::Status grab(camera::RawFrame& frame) override {
        using camera::ErrorCode;
        std::unique_lock<std::mutex> lock(mutex_);
        ++grabs_;
        changed_.notify_all();
        if (isRecording()) {
            if (next_ >= recorded_frames_)
                return {ErrorCode::kEndOfFile, "end"};
            position_ = next_++;
            if (position_ == damaged_frame)
                return {ErrorCode::kNoNewFrame, "damaged"};
            fill(frame, position_);
            return {};
        }
        changed_.wait_for(lock, std::chrono::milliseconds(5), [&] { return !script_.empty(); });
        if (script_.empty())
            return {ErrorCode::kNoNewFrame, "nothing due"};
        const Step step = script_.front();
        script_.pop_front();
        if (step.code != ErrorCode::kOk)
            return {step.code, "scripted"};
        fill(frame, step.number);
        return {};
    }

    /// A live frame is due.
    void deliver(int number) { add({camera::ErrorCode::kOk, number}); }
    void fail(camera::ErrorCode code) { add({code, 0}); }
    /// Waits until the source was asked for another frame after all that was handed out.
    void waitUntilDrained() {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return script_.empty(); });
        const int asked = grabs_;
        changed_.wait(lock, [&] { return grabs_ > asked; });
    }
    int grabs() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return grabs_;
    }

    std::atomic<std::int64_t> dropped{0};
    std::atomic<int> damaged_frame{-1};

private:
    struct Step {
        camera::ErrorCode code;
        int number;
    };
    void add(Step step) {
        const std::lock_guard<std::mutex> lock(mutex_);
        script_.push_back(step);
        changed_.notify_all();
    }
    void fill(camera::RawFrame& frame, int number) {
        frame.data.assign(std::size_t(stream_.width) * std::size_t(stream_.height),
                          static_cast<std::uint8_t>(number));
        frame.sequence = number;
        frame.t_ns = number * INT64_C(33000000);
        camera::ImuSample sample;
        sample.t_ns = frame.t_ns;
        frame.imu.assign(1, sample);
    }

    int recorded_frames_;
    camera::StreamInfo stream_;
    camera::CameraInfo camera_;
    camera::StereoCalibration calibration_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Step> script_;
    int grabs_ = 0;
    std::atomic<int> position_{-1};
    std::atomic<int> next_{0};
};

}  // namespace kova::test
