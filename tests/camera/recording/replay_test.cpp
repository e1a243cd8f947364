#include <gtest/gtest.h>

#include <thread>

#include "camera/recording/recording_writer.h"
#include "camera/recording/replay_source.h"
#include "tests/support/recordings.h"
#include "tests/support/test_data.h"

namespace kova::camera {
namespace {

constexpr std::int64_t kMs = 1'000'000;

/// Time passes only when somebody sleeps, or the test says so.
class FakeClock : public ReplayClock {
public:
    std::int64_t nowNs() override { return now_ns; }
    void sleepNs(std::int64_t duration_ns) override {
        EXPECT_LE(duration_ns, 100 * kMs);
        now_ns += duration_ns;
    }
    void pass(std::int64_t ms) { now_ns += ms * kMs; }
    std::int64_t now_ns = 5'000'000'000;
};

class Replay : public testing::Test {
protected:
    /// A recording with frames at these times.
    void record(const std::vector<std::int64_t>& times_ms, std::int64_t base_ns = 0) {
        path_ = folder_ / "a.kova";
        const StreamInfo stream = test::smallStream();
        RecordingOptions options;
        options.overwrite = true;
        auto writer = RecordingWriter::create(path_, stream, test::smallCamera(),
                                              test::smallCalibration(32, 24), options);
        ASSERT_TRUE(writer.ok());
        for (std::size_t i = 0; i < times_ms.size(); ++i) {
            RawFrame frame = test::smallFrame(stream, static_cast<int>(i));
            frame.t_ns = base_ns + times_ms[i] * kMs;
            frame.imu.clear();
            ASSERT_TRUE(writer.value()->write(frame).ok());
        }
        ASSERT_TRUE(writer.value()->finish().ok());
        auto source = ReplaySource::open(path_, clock_);
        ASSERT_TRUE(source.ok()) << source.status().message();
        source_ = std::move(source.value());
    }

    /// Grabs and says how long that took [ms]; -1 for no frame.
    std::int64_t grab() {
        const std::int64_t before = clock_->now_ns;
        const Status status = source_->grab(frame_);
        const std::int64_t took_ms = (clock_->now_ns - before) / kMs;
        if (status.code() == ErrorCode::kNoNewFrame) {
            EXPECT_EQ(took_ms, 100);
            return -1;
        }
        EXPECT_TRUE(status.ok()) << status.message();
        return took_ms;
    }

    test::TemporaryFolder folder_;
    std::string path_;
    std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>();
    std::unique_ptr<ReplaySource> source_;
    RawFrame frame_;
};

TEST_F(Replay, PositionIsTheFrameGrabbedLast) {
    record({0, 10, 20});
    EXPECT_TRUE(source_->isRecording());
    EXPECT_EQ(source_->frameCount(), 3);
    EXPECT_EQ(source_->position(), -1);
    for (int i = 0; i < 3; ++i) {
        grab();
        EXPECT_EQ(source_->position(), i);
        EXPECT_EQ(frame_.sequence, 100 + i);
    }
    EXPECT_EQ(source_->grab(frame_).code(), ErrorCode::kEndOfFile);
    EXPECT_EQ(source_->grab(frame_).code(), ErrorCode::kEndOfFile);
    EXPECT_EQ(source_->position(), 2);
}

TEST_F(Replay, AFileOfOneFrameIsShown) {
    record({7});
    EXPECT_EQ(grab(), 0);
    EXPECT_EQ(source_->position(), 0);
    EXPECT_EQ(source_->grab(frame_).code(), ErrorCode::kEndOfFile);
}

TEST_F(Replay, SeekDeliversThatFrameNextAndIsClamped) {
    record({0, 50, 100, 150, 200});
    source_->seek(3);
    EXPECT_EQ(source_->position(), -1);
    EXPECT_EQ(grab(), 0);
    EXPECT_EQ(source_->position(), 3);
    source_->seek(99);
    EXPECT_EQ(grab(), 0);
    EXPECT_EQ(source_->position(), 4);
    source_->seek(-5);
    EXPECT_EQ(grab(), 0);
    EXPECT_EQ(source_->position(), 0);
    EXPECT_EQ(grab(), 50);
}

TEST_F(Replay, KeepsTheRecordedPaceWhenProcessingIsFast) {
    record({0, 33, 80, 100});
    EXPECT_EQ(grab(), 0);
    clock_->pass(10);
    EXPECT_EQ(grab(), 23);
    clock_->pass(10);
    EXPECT_EQ(grab(), 37);
    clock_->pass(20);
    EXPECT_EQ(grab(), 0);
}

TEST_F(Replay, ALittleLateIsMadeUpFor) {
    record({0, 40, 80, 120});
    EXPECT_EQ(grab(), 0);
    clock_->pass(60);
    EXPECT_EQ(grab(), 0);   // 20 ms late
    EXPECT_EQ(grab(), 20);  // on time again
}

TEST_F(Replay, ShowsEveryFrameWhenProcessingIsSlowWithoutARushAfterwards) {
    record({0, 30, 60, 90, 120});
    EXPECT_EQ(grab(), 0);
    for (int i = 1; i < 4; ++i) {
        clock_->pass(100);
        EXPECT_EQ(grab(), 0);
        EXPECT_EQ(source_->position(), i);
    }
    EXPECT_EQ(grab(), 30);
}

TEST_F(Replay, WaitsAtMostATenthOfASecondAndThenGoesOn) {
    record({0, 350, 400});
    EXPECT_EQ(grab(), 0);
    EXPECT_EQ(grab(), -1);
    EXPECT_EQ(grab(), -1);
    EXPECT_EQ(source_->position(), 0);
    EXPECT_EQ(grab(), -1);
    EXPECT_EQ(grab(), 50);
    EXPECT_EQ(source_->position(), 1);
    EXPECT_EQ(grab(), 50);
}

TEST_F(Replay, ALongGapTakesOneSecond) {
    record({0, 60000});
    EXPECT_EQ(grab(), 0);
    const std::int64_t began = clock_->now_ns;
    for (int i = 0; i < 9; ++i) EXPECT_EQ(grab(), -1);
    EXPECT_EQ(grab(), 100);
    EXPECT_EQ(clock_->now_ns - began, 1000 * kMs);
}

TEST_F(Replay, TheFirstFrameAfterAPauseComesAtOnceAndSoDoesEveryStep) {
    record({0, 900, 1800, 2700, 2750});
    EXPECT_EQ(grab(), 0);
    EXPECT_EQ(grab(), -1);
    clock_->pass(300);
    EXPECT_EQ(grab(), 0);
    clock_->pass(400);
    EXPECT_EQ(grab(), 0);
    clock_->pass(400);
    EXPECT_EQ(grab(), 0);
    EXPECT_EQ(grab(), 50);
}

TEST_F(Replay, UnpacedComesAtOnce) {
    record({0, 500, 1000});
    source_->setPaced(false);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(grab(), 0);
    EXPECT_EQ(clock_->now_ns, 5'000'000'000);
}

TEST_F(Replay, ImuOnlyWhereThereIsOne) {
    record({0, 10});
    EXPECT_EQ(source_->startImu().code(), ErrorCode::kImuMissing);
}

// Buttons of a window act while another thread waits for a frame.
TEST_F(Replay, SeekFromAnotherThread) {
    record({0, 5, 10, 15, 20, 25, 30, 35});
    auto opened = ReplaySource::open(path_);
    ASSERT_TRUE(opened.ok());
    ReplaySource& source = *opened.value();
    std::thread seeker([&] {
        for (int i = 0; i < 100; ++i) {
            source.seek(i % 8);
            source.setPaced(i % 2 == 0);
            EXPECT_LT(source.position(), 8);
        }
    });
    RawFrame frame;
    for (int i = 0; i < 100; ++i) (void)source.grab(frame);
    seeker.join();
    source.seek(6);
    source.setPaced(false);
    ASSERT_TRUE(source.grab(frame).ok());
    EXPECT_EQ(source.position(), 6);
}

}  // namespace
}  // namespace kova::camera
