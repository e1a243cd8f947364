#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <pty.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <regex>
#include <thread>

#include "camera/recording/recording_reader.h"
#include "camera/recording/replay_source.h"
#include "tests/support/recordings.h"
#include "tests/support/test_data.h"
#include "tools/commands/record_command.h"
#include "tools/interrupt.h"

namespace kova::tools {
namespace {

using camera::ErrorCode;
using camera::RawFrame;
using camera::RecordingReader;
using camera::Status;

/// A live camera whose frames come as fast as they are taken.
class LiveSource : public camera::Source {
public:
    /// @param next  fills frame number n, or says why there is none
    LiveSource(const camera::StreamInfo& stream, std::function<Status(int n, RawFrame&)> next)
        : stream_(stream),
          camera_(test::smallCamera()),
          calibration_(test::smallCalibration(stream.eyeWidth(), stream.eyeHeight())),
          next_(std::move(next)) {}
    const camera::StreamInfo& stream() const override { return stream_; }
    const camera::CameraInfo& camera() const override { return camera_; }
    const camera::StereoCalibration& calibration() const override { return calibration_; }
    std::int64_t droppedFrames() const override { return dropped; }
    Status grab(RawFrame& frame) override { return next_(number_++, frame); }

    std::int64_t dropped = 0;

private:
    camera::StreamInfo stream_;
    camera::CameraInfo camera_;
    camera::StereoCalibration calibration_;
    std::function<Status(int, RawFrame&)> next_;
    int number_ = 0;
};

class RecordFrom : public testing::Test {
protected:
    /// Records into file_; the queue holds more than any of these tests takes.
    RecordSummary record(LiveSource& source, const RecordLimits& limits = {}) {
        auto writer = camera::AsyncRecordingWriter::create(file_, source.stream(), source.camera(),
                                                           source.calibration(), {}, 10000);
        EXPECT_TRUE(writer.ok()) << writer.status().message();
        return recordFrom(source, *writer.value(), limits, file_, false);
    }
    /// `count` frames, then the camera is gone.
    std::function<Status(int, RawFrame&)> frames(int count) {
        return [this, count](int n, RawFrame& frame) -> Status {
            if (n >= count)
                return {ErrorCode::kInvalidCamera, "the camera was unplugged"};
            frame = test::smallFrame(stream_, n);
            return {};
        };
    }
    std::unique_ptr<RecordingReader> recorded() {
        auto reader = RecordingReader::open(file_);
        EXPECT_TRUE(reader.ok()) << reader.status().message();
        return reader.ok() ? std::move(reader.value()) : nullptr;
    }

    test::TemporaryFolder folder_;
    std::string file_ = folder_ / "a.kova";
    camera::StreamInfo stream_ = test::smallStream();
};

TEST_F(RecordFrom, WhatIsReplayedIsTheCamerasJpegByteForByte) {
    stream_.codec = camera::FrameCodec::kJpeg;
    std::vector<RawFrame> taken;
    for (int i = 0; i < 12; ++i) {
        RawFrame frame = test::smallFrame(stream_, i);
        const cv::Mat picture(stream_.height, stream_.width, CV_8UC1, frame.data.data());
        std::vector<std::uint8_t> jpeg;
        cv::imencode(".jpg", picture, jpeg, {cv::IMWRITE_JPEG_QUALITY, 60 + i});
        // Cameras put data of their own into comments.
        const std::uint8_t comment[] = {0xFF, 0xFE, 0, 5, 'k', 'o', static_cast<std::uint8_t>(i)};
        jpeg.insert(jpeg.begin() + 2, std::begin(comment), std::end(comment));
        frame.data = jpeg;
        taken.push_back(frame);
    }
    LiveSource source(stream_, [&](int n, RawFrame& frame) -> Status {
        if (n >= int(taken.size()))
            return {ErrorCode::kInvalidCamera, "gone"};
        frame = taken[std::size_t(n)];
        return {};
    });
    record(source);
    auto replay = camera::ReplaySource::open(file_);
    ASSERT_TRUE(replay.ok()) << replay.status().message();
    replay.value()->setPaced(false);
    EXPECT_EQ(replay.value()->stream().codec, camera::FrameCodec::kJpeg);
    EXPECT_EQ(replay.value()->camera().serial_number, test::smallCamera().serial_number);
    EXPECT_EQ(replay.value()->calibration().translation_mm, source.calibration().translation_mm);
    RawFrame frame;
    for (const RawFrame& expected : taken) {
        ASSERT_TRUE(replay.value()->grab(frame).ok());
        EXPECT_EQ(frame.data, expected.data);
        EXPECT_EQ(frame.t_ns, expected.t_ns);
        EXPECT_EQ(frame.sequence, expected.sequence);
        EXPECT_EQ(frame.exposure_us, expected.exposure_us);
        ASSERT_EQ(frame.imu.size(), expected.imu.size());
        for (std::size_t i = 0; i < frame.imu.size(); ++i) {
            EXPECT_EQ(frame.imu[i].t_ns, expected.imu[i].t_ns);
            EXPECT_EQ(frame.imu[i].accel, expected.imu[i].accel);
        }
    }
    EXPECT_EQ(replay.value()->grab(frame).code(), ErrorCode::kEndOfFile);
}

TEST_F(RecordFrom, StopsAfterTheTimeOfTheCamera) {
    LiveSource source(stream_, frames(1000));
    RecordLimits limits;
    limits.seconds = 0.45;  // the 14th frame is 0.433 s after the first
    const RecordSummary summary = record(source, limits);
    EXPECT_TRUE(summary.ended.ok());
    EXPECT_EQ(summary.progress.written, 14);
    EXPECT_EQ(recorded()->frameCount(), 14);
}

TEST_F(RecordFrom, StopsAtTheSize) {
    stream_ = test::smallStream(512, 128);  // noise, so that nothing is compressed: 64 KiB a frame
    auto endless = frames(1000000);
    LiveSource source(stream_, [&](int n, RawFrame& frame) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        return endless(n, frame);
    });
    RecordLimits limits;
    limits.megabytes = 1;
    const RecordSummary summary = record(source, limits);
    EXPECT_TRUE(summary.ended.ok());
    EXPECT_GE(summary.progress.bytes, 1000000);
    EXPECT_GE(recorded()->fileBytes(), 1000000);
    EXPECT_EQ(recorded()->frameCount(), summary.progress.written);
    EXPECT_LT(summary.progress.written, 1000000);
}

TEST_F(RecordFrom, TheEndOfTheCameraKeepsAllItsFramesAndIsTold) {
    LiveSource source(stream_, frames(20));
    const RecordSummary summary = record(source);
    EXPECT_EQ(summary.ended.code(), ErrorCode::kInvalidCamera);
    EXPECT_EQ(summary.ended.message(), "the camera was unplugged");
    EXPECT_EQ(summary.progress.received, 20);
    EXPECT_EQ(summary.progress.written, 20);
    EXPECT_FALSE(recorded()->wasRepaired());
    EXPECT_EQ(recorded()->frameCount(), 20);
}

TEST_F(RecordFrom, MomentsWithoutAFrameEndNothing) {
    auto ten = frames(10);
    LiveSource source(stream_, [&](int n, RawFrame& frame) -> Status {
        if (n % 2 == 0)
            return {ErrorCode::kNoNewFrame, "nothing is due"};
        return ten(n / 2, frame);
    });
    record(source);
    EXPECT_EQ(recorded()->frameCount(), 10);
    EXPECT_TRUE(recorded()->drops().empty());
}

TEST_F(RecordFrom, FramesThatTheCameraLostAreCountedAndNoted) {
    LiveSource* camera = nullptr;
    auto ten = frames(10);
    LiveSource source(stream_, [&](int n, RawFrame& frame) {
        if (n == 0)
            camera->dropped += 9;  // while the camera waited for the file to be made
        if (n == 4)
            camera->dropped += 3;
        if (n == 7)
            camera->dropped += 1;
        return ten(n, frame);
    });
    camera = &source;
    source.dropped = 50;  // before the recording began; they concern nobody
    const RecordSummary summary = record(source);
    EXPECT_EQ(summary.camera_dropped, 4);
    EXPECT_EQ(summary.progress.dropped, 0);
    const std::vector<camera::DropRecord> drops = recorded()->drops();
    ASSERT_EQ(drops.size(), 2u);
    EXPECT_EQ(drops[0].count, 3);
    EXPECT_EQ(drops[0].cause, "camera");
    EXPECT_EQ(drops[0].t_ns, recorded()->timeNs(4));
    EXPECT_EQ(drops[1].count, 1);
    EXPECT_EQ(drops[1].t_ns, recorded()->timeNs(7));
}

TEST_F(RecordFrom, AnInterruptEndsTheRecordingInOrder) {
    for (const int signal_number : {SIGINT, SIGTERM}) {
        std::filesystem::remove(file_);
        const Interrupt interrupt;
        EXPECT_FALSE(Interrupt::requested());
        auto endless = frames(1000000);
        LiveSource source(stream_, [&](int n, RawFrame& frame) {
            if (n == 9)
                std::raise(signal_number);
            return endless(n, frame);
        });
        const RecordSummary summary = record(source);
        EXPECT_TRUE(summary.ended.ok()) << summary.ended.message();
        EXPECT_EQ(summary.progress.written, 10);
        EXPECT_EQ(recorded()->frameCount(), 10);
        EXPECT_FALSE(recorded()->wasRepaired());
    }
}

// --- kova record as a process -------------------------------------------------------------------

class KovaRecord : public testing::Test {
protected:
    void start(const char* cameras, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {KOVA_BINARY, "record", file_});
        std::vector<char*> argv;
        for (std::string& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        const std::string out = folder_ / "out", err = folder_ / "err";
        process_ = ::fork();
        ASSERT_GE(process_, 0);
        if (process_ != 0)
            return;
        ::setenv("KOVA_SIMULATED_CAMERAS", cameras, 1);
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{largest_file_, largest_file_};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        if (!std::freopen(out.c_str(), "w", stdout) || !std::freopen(err.c_str(), "w", stderr))
            ::_exit(126);
        if (terminal_ >= 0)
            ::dup2(terminal_, STDERR_FILENO);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    /// The exit code; -1 after a signal.
    int finish() {
        int status = 0;
        EXPECT_EQ(::waitpid(process_, &status, 0), process_);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    int record(const char* cameras, const std::vector<std::string>& arguments) {
        start(cameras, arguments);
        return finish();
    }
    std::string text(const char* name) {
        std::ifstream in(folder_ / name);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    test::TemporaryFolder folder_;
    std::string file_ = folder_ / "a.kova";
    pid_t process_ = -1;
    rlim_t largest_file_ = RLIM_INFINITY;  ///< [bytes] as on a disk of that size
    int terminal_ = -1;                    ///< where standard error goes, instead of "err"
};

TEST_F(KovaRecord, ForAWhileFromTheFirstCamera) {
    ASSERT_EQ(record("P1:scene=wall:seed=3,R0", {"--mode", "SD400_30FPS", "--seconds", "0.5"}), 0)
        << text("err");
    EXPECT_EQ(text("err"), "") << "no counters where there is no terminal";
    EXPECT_NE(text("out").find(" frames, "), std::string::npos) << text("out");
    auto reader = RecordingReader::open(file_);
    ASSERT_TRUE(reader.ok()) << reader.status().message();
    RecordingReader& r = *reader.value();
    EXPECT_FALSE(r.wasRepaired());
    EXPECT_GT(r.frameCount(), 0);
    EXPECT_EQ(r.stream().width, 1280);
    EXPECT_EQ(r.stream().nominal_fps, 30);
    EXPECT_GT(r.imuSampleCount(), 0);
    EXPECT_LT(r.timeNs(r.frameCount() - 1) - r.timeNs(0), 500000000);
    EXPECT_EQ(r.clock().size(), 1u);
    // What is missing is noted: frames and drops together are the camera's own count.
    RawFrame first, last;
    ASSERT_TRUE(r.read(0, first).ok());
    ASSERT_TRUE(r.read(r.frameCount() - 1, last).ok());
    std::int64_t lost = 0;
    for (const camera::DropRecord& drop : r.drops())
        if (drop.t_ns > first.t_ns)
            lost += drop.count;
    EXPECT_EQ(last.sequence - first.sequence + 1, r.frameCount() + lost);
}

TEST_F(KovaRecord, AnUnpluggedCameraEndsInAWholeFileAndAReason) {
    EXPECT_EQ(record("R0:scene=wall:unplug_s=1.5", {"--mode", "SD400_15FPS"}), 1);
    EXPECT_NE(text("err").find("is gone"), std::string::npos) << text("err");
    auto reader = RecordingReader::open(file_);
    ASSERT_TRUE(reader.ok()) << reader.status().message();
    EXPECT_FALSE(reader.value()->wasRepaired());
    EXPECT_GT(reader.value()->frameCount(), 0);
    EXPECT_FALSE(std::filesystem::exists(file_ + "-journal"));
}

TEST_F(KovaRecord, CtrlCEndsInAWholeFile) {
    start("R0:scene=wall", {"--mode", "SD400_15FPS"});
    // The file grows when the first frames are committed.
    std::error_code none;
    std::uintmax_t made = 0;
    for (std::uintmax_t size = 0; made == 0 || size <= made + 1000000;) {
        size = std::filesystem::file_size(file_, none);
        if (none)
            size = 0;
        else if (made == 0)
            made = size;
        int status = 0;
        ASSERT_EQ(::waitpid(process_, &status, WNOHANG), 0) << text("err");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ASSERT_EQ(::kill(process_, SIGINT), 0);
    EXPECT_EQ(finish(), 0) << text("err");
    auto reader = RecordingReader::open(file_);
    ASSERT_TRUE(reader.ok()) << reader.status().message();
    EXPECT_FALSE(reader.value()->wasRepaired());
    EXPECT_GT(reader.value()->frameCount(), 0);
}

TEST_F(KovaRecord, AFullDiskEndsInAWholeFileAndAReason) {
    largest_file_ = 12 << 20;
    EXPECT_EQ(record("R0:scene=wall", {"--mode", "SD400_15FPS"}), 1);
    EXPECT_NE(text("err").find("free some space"), std::string::npos) << text("err");
    auto reader = RecordingReader::open(file_);
    ASSERT_TRUE(reader.ok()) << reader.status().message();
    EXPECT_GT(reader.value()->frameCount(), 0);
    EXPECT_NE(text("out").find(": " + std::to_string(reader.value()->frameCount()) + " frames"),
              std::string::npos)
        << text("out");
}

TEST_F(KovaRecord, OnATerminalALineCounts) {
    int terminal = -1;
    ASSERT_EQ(::openpty(&terminal, &terminal_, nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(record("R0:scene=wall", {"--mode", "SD400_15FPS", "--seconds", "0.7"}), 0);
    char shown[4096] = {};
    ASSERT_GT(::read(terminal, shown, sizeof shown - 1), 0);
    ::close(terminal);
    ::close(terminal_);
    const std::regex line(
        "[0-9.]+ s  received [0-9]+  written [0-9]+  dropped [0-9]+  [0-9.]+ MB/s, [0-9]+ min left "
        "on the disk");
    const std::string text(shown);
    EXPECT_TRUE(std::regex_search(text, line)) << text;
    EXPECT_GE(std::count(text.begin(), text.end(), '\r'), 2) << "it is rewritten";
}

TEST_F(KovaRecord, WrongWordsLeaveNoFile) {
    EXPECT_EQ(record("R0", {"--camera", "3"}), 1);
    EXPECT_NE(text("err").find("there is no camera 3"), std::string::npos) << text("err");
    EXPECT_EQ(record("R0", {"--mode", "SD9"}), 1);
    EXPECT_NE(text("err").find("unknown mode 'SD9'"), std::string::npos) << text("err");
    EXPECT_EQ(record("R0", {"--seconds", "-1"}), 2);
    EXPECT_FALSE(std::filesystem::exists(file_));
    std::ofstream(file_) << "mine";
    EXPECT_EQ(record("R0:scene=wall", {"--mode", "SD400_15FPS", "--seconds", "0.1"}), 1);
    std::ifstream kept(file_);
    std::string word;
    kept >> word;
    EXPECT_EQ(word, "mine");
}

}  // namespace
}  // namespace kova::tools
