#include "camera/pipeline/frame_feeder.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "tests/camera/pipeline/fake_source.h"

namespace kova::camera {
namespace {

using test::FakeSource;

struct Feeder : testing::Test {
    FakeSource* source = nullptr;
    std::unique_ptr<FrameFeeder> feeder;
    DecodedFrame frame;

    void open(int recorded_frames) {
        auto made = std::make_unique<FakeSource>(recorded_frames);
        source = made.get();
        feeder = std::make_unique<FrameFeeder>(std::move(made));
    }
    /// Takes a frame, past the moments in which none is due.
    Status takeSoon() {
        Status status;
        do status = feeder->take(frame);
        while (status.code() == ErrorCode::kNoNewFrame);
        return status;
    }
};

TEST_F(Feeder, ARecordingComesWholeAndInOrder) {
    open(20);
    EXPECT_EQ(feeder->position(), -1);
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(takeSoon().ok());
        EXPECT_EQ(frame.position, i);
        EXPECT_EQ(feeder->position(), i);
        EXPECT_EQ(frame.pair.left.at(3, 3), i);
        EXPECT_EQ(frame.imu.size(), 1u);
        EXPECT_EQ(frame.dropped_frames, 0);
    }
    EXPECT_EQ(takeSoon().code(), ErrorCode::kEndOfFile);
    EXPECT_EQ(takeSoon().code(), ErrorCode::kEndOfFile) << "until a seek";
    EXPECT_EQ(feeder->position(), 19);
}

TEST_F(Feeder, AfterASeekTheNextFrameIsTheOneNamed) {
    open(20);
    for (const int target : {7, 0, 19, 19, 3}) {
        feeder->seek(target);
        ASSERT_TRUE(takeSoon().ok());
        EXPECT_EQ(frame.position, target);
        EXPECT_EQ(frame.pair.right.at(0, 0), target);
    }
    feeder->seek(19);
    ASSERT_TRUE(takeSoon().ok());
    EXPECT_EQ(takeSoon().code(), ErrorCode::kEndOfFile);
    feeder->seek(5);
    ASSERT_TRUE(takeSoon().ok()) << "a seek ends the end of the file";
    EXPECT_EQ(frame.position, 5);
}

TEST_F(Feeder, ADamagedFrameIsPassedAndThePositionMovesOn) {
    open(3);
    source->damaged_frame = 2;
    feeder->seek(1);
    ASSERT_TRUE(takeSoon().ok());
    EXPECT_EQ(takeSoon().code(), ErrorCode::kEndOfFile);
    EXPECT_EQ(feeder->position(), 2) << "else a player would wait for the last frame for ever";
}

TEST_F(Feeder, OfALiveSourceTheNewestFrameWins) {
    open(0);
    source->deliver(1);
    source->deliver(2);
    source->deliver(3);
    source->waitUntilDrained();
    ASSERT_TRUE(takeSoon().ok());
    EXPECT_EQ(frame.sequence, 3);
    EXPECT_EQ(frame.dropped_frames, 2);
    EXPECT_EQ(frame.imu.size(), 3u) << "samples of dropped frames are kept";
    EXPECT_EQ(frame.position, -1);
}

TEST_F(Feeder, DropsOfTheSourceAreCountedOnce) {
    open(0);
    source->dropped = 4;
    source->deliver(1);
    ASSERT_TRUE(takeSoon().ok());
    EXPECT_EQ(frame.dropped_frames, 4);
    source->deliver(2);
    ASSERT_TRUE(takeSoon().ok());
    EXPECT_EQ(frame.dropped_frames, 0);
}

TEST_F(Feeder, NothingDueIsSaidAndTheNextCallGoesOn) {
    open(0);
    EXPECT_EQ(feeder->take(frame).code(), ErrorCode::kNoNewFrame);
    source->deliver(9);
    ASSERT_TRUE(takeSoon().ok());
    EXPECT_EQ(frame.sequence, 9);
}

/// A driver that does not come back from a call until it is released.
class StuckSource : public FakeSource {
public:
    explicit StuckSource(std::shared_future<void> released) : released_(std::move(released)) {}
    Status grab(RawFrame&) override {
        released_.wait();
        return {ErrorCode::kInvalidCamera, "gone"};
    }

private:
    std::shared_future<void> released_;
};

TEST_F(Feeder, ALiveSourceThatIsStuckHoldsNobodyUp) {
    std::promise<void> release;
    FrameFeeder stuck(std::make_unique<StuckSource>(release.get_future().share()));
    // Would wait for ever if it waited for the source.
    EXPECT_EQ(stuck.take(frame).code(), ErrorCode::kNoNewFrame);
    EXPECT_EQ(stuck.take(frame).code(), ErrorCode::kNoNewFrame);
    release.set_value();
    Status status;
    do status = stuck.take(frame);
    while (status.code() == ErrorCode::kNoNewFrame);
    EXPECT_EQ(status.code(), ErrorCode::kInvalidCamera);
}

TEST_F(Feeder, ALostCameraStaysLost) {
    open(0);
    source->deliver(1);
    source->fail(ErrorCode::kInvalidCamera);
    ASSERT_TRUE(takeSoon().ok());
    EXPECT_EQ(takeSoon().code(), ErrorCode::kInvalidCamera);
    source->deliver(2);
    EXPECT_EQ(takeSoon().code(), ErrorCode::kInvalidCamera);
    EXPECT_LT(source->grabs(), 1000) << "it is not asked any more";
}

TEST_F(Feeder, SeeksFromAnotherThreadNeitherBlockNorMix) {
    open(50);
    std::atomic<bool> stop{false};
    std::thread other([&] {
        for (int i = 0; !stop; i = (i + 7) % 50) feeder->seek(i);
    });
    for (int i = 0; i < 200; ++i) {
        const Status status = feeder->take(frame);
        if (status.ok()) {
            EXPECT_EQ(frame.pair.left.at(0, 0), frame.position);
        }
    }
    stop = true;
    other.join();
}

}  // namespace
}  // namespace kova::camera
