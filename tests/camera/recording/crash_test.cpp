#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "camera/base/log.h"
#include "camera/recording/async_recording_writer.h"
#include "camera/recording/recording_reader.h"
#include "tests/support/recordings.h"
#include "tests/support/test_data.h"

namespace kova::camera {
namespace {

class QuietLog {
public:
    QuietLog() {
        setLogSink([](LogLevel, const std::string&, const std::string&) {});
    }
    ~QuietLog() { setLogSink({}); }
};

constexpr std::chrono::milliseconds kCommitInterval{20};

/// Records for ever, and tells through `out` how many frames are safe after each one.
[[noreturn]] void recordForEver(const std::string& path, int out) {
    const StreamInfo stream = test::smallStream(512, 128);
    RecordingOptions options;
    options.commit_interval = kCommitInterval;
    auto writer = RecordingWriter::create(path, stream, test::smallCamera(),
                                          test::smallCalibration(256, 128), options);
    if (!writer.ok())
        ::_exit(1);
    for (int i = 0;; ++i) {
        if (!writer.value()->write(test::smallFrame(stream, i)).ok())
            ::_exit(1);
        const std::int64_t safe = writer.value()->committedFrames();
        if (::write(out, &safe, sizeof safe) != sizeof safe)
            ::_exit(1);
    }
}

TEST(Crash, AKilledRecorderLeavesEveryCommittedFrame) {
    const QuietLog quiet;
    std::uint32_t state = 2024;
    int repaired = 0;
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(round);
        const test::TemporaryFolder folder;
        const std::string path = folder / "a.kova";
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0)
            recordForEver(path, ends[1]);
        ::close(ends[1]);

        // Killed at a random moment after the first commit.
        state = state * 1664525u + 1013904223u;
        const auto moment = std::chrono::microseconds((state >> 8) % 200000);
        std::int64_t safe = 0;
        while (safe == 0) ASSERT_EQ(::read(ends[0], &safe, sizeof safe), ssize_t{sizeof safe});
        const auto end = std::chrono::steady_clock::now() + moment;
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                end - std::chrono::steady_clock::now());
            pollfd waiting{ends[0], POLLIN, 0};
            if (left.count() <= 0)
                break;
            if (::poll(&waiting, 1, static_cast<int>(left.count())) <= 0)
                continue;
            ASSERT_EQ(::read(ends[0], &safe, sizeof safe), ssize_t{sizeof safe});
        }
        ASSERT_EQ(::kill(child, SIGKILL), 0);
        std::int64_t more = 0;
        while (::read(ends[0], &more, sizeof more) == ssize_t{sizeof more}) safe = more;
        ::close(ends[0]);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));

        auto reader = RecordingReader::open(path);
        ASSERT_TRUE(reader.ok()) << reader.status().message();
        EXPECT_GE(reader.value()->frameCount(), safe);
        repaired += reader.value()->wasRepaired();
        RawFrame frame;
        for (int i = 0; i < reader.value()->frameCount(); ++i) {
            ASSERT_TRUE(reader.value()->read(i, frame).ok()) << i;
            EXPECT_EQ(frame.sequence, 100 + i);
            EXPECT_EQ(frame.imu.size(), 3u);
        }
    }
    EXPECT_GT(repaired, 0) << "no recorder was killed while it wrote; the test shows nothing";
}

TEST(Crash, AFileThatIsStillBeingRecordedIsNotOpened) {
    const QuietLog quiet;
    const test::TemporaryFolder folder;
    const std::string path = folder / "a.kova";
    const StreamInfo stream = test::smallStream();
    auto writer = RecordingWriter::create(path, stream, {}, test::smallCalibration(32, 24));
    ASSERT_TRUE(writer.ok());
    ASSERT_TRUE(writer.value()->write(test::smallFrame(stream, 0)).ok());
    const auto reader = RecordingReader::open(path);
    EXPECT_EQ(reader.status().code(), ErrorCode::kCannotOpenFile);
    EXPECT_NE(reader.status().message().find("being recorded"), std::string::npos);
    ASSERT_TRUE(writer.value()->write(test::smallFrame(stream, 1)).ok());
    ASSERT_TRUE(writer.value()->finish().ok());
    EXPECT_TRUE(RecordingReader::open(path).ok());
}

/// Files of this process cannot grow beyond `bytes` while it lives, as on a full disk.
class SmallDisk {
public:
    explicit SmallDisk(rlim_t bytes) {
        ::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~SmallDisk() { ::setrlimit(RLIMIT_FSIZE, &before_); }

private:
    rlimit before_{};
};

TEST(Crash, AFullDiskKeepsWhatWasCommitted) {
    const QuietLog quiet;
    const test::TemporaryFolder folder;
    const std::string path = folder / "a.kova";
    const StreamInfo stream = test::smallStream(512, 128);
    std::int64_t safe = 0;
    {
        const SmallDisk disk(2 << 20);
        RecordingOptions options;
        options.commit_interval = std::chrono::milliseconds(0);
        auto writer = RecordingWriter::create(path, stream, test::smallCamera(),
                                              test::smallCalibration(256, 128), options);
        ASSERT_TRUE(writer.ok());
        Status status;
        for (int i = 0; i < 100 && status.ok(); ++i)
            status = writer.value()->write(test::smallFrame(stream, i));
        EXPECT_EQ(status.code(), ErrorCode::kWriteFailed);
        EXPECT_NE(status.message().find("free some space"), std::string::npos) << status.message();
        safe = writer.value()->committedFrames();
        EXPECT_GT(safe, 5);
        EXPECT_EQ(writer.value()->write(test::smallFrame(stream, 200)).code(),
                  ErrorCode::kWriteFailed);
        EXPECT_EQ(writer.value()->finish().code(), ErrorCode::kWriteFailed);
    }
    auto reader = RecordingReader::open(path);
    ASSERT_TRUE(reader.ok()) << reader.status().message();
    EXPECT_EQ(reader.value()->frameCount(), safe);
    RawFrame frame;
    for (int i = 0; i < safe; ++i) EXPECT_TRUE(reader.value()->read(i, frame).ok());
}

TEST(Crash, ADiskThatIsFullFromTheBeginningLeavesNoFile) {
    const QuietLog quiet;
    const test::TemporaryFolder folder;
    const SmallDisk disk(10000);
    const auto writer = RecordingWriter::create(folder / "a.kova", test::smallStream(), {},
                                                test::smallCalibration(32, 24));
    EXPECT_EQ(writer.status().code(), ErrorCode::kWriteFailed);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(AsyncWriter, WritesWhatWasPushed) {
    const test::TemporaryFolder folder;
    const std::string path = folder / "a.kova";
    const StreamInfo stream = test::smallStream();
    auto writer =
        AsyncRecordingWriter::create(path, stream, {}, test::smallCalibration(32, 24), {}, 1000);
    ASSERT_TRUE(writer.ok());
    for (int i = 0; i < 50; ++i)
        ASSERT_TRUE(writer.value()->push(test::smallFrame(stream, i)).ok());
    ASSERT_TRUE(writer.value()->push(test::smallFrame(stream, 3)).ok());  // out of order: dropped
    writer.value()->addDrops(5, 7, DropCause::kCamera);
    ASSERT_TRUE(writer.value()->finish().ok());
    const RecordingProgress progress = writer.value()->progress();
    EXPECT_EQ(progress.received, 51);
    EXPECT_EQ(progress.written, 50);
    EXPECT_EQ(progress.dropped, 1);
    auto reader = RecordingReader::open(path);
    ASSERT_TRUE(reader.ok());
    EXPECT_EQ(reader.value()->frameCount(), 50);
    EXPECT_EQ(reader.value()->drops().size(), 2u);
}

// Every frame is either written or counted, and the recording knows about the lost ones.
TEST(AsyncWriter, AFullQueueDropsAndCounts) {
    const test::TemporaryFolder folder;
    const std::string path = folder / "a.kova";
    const StreamInfo stream = test::smallStream(1024, 256);
    auto writer =
        AsyncRecordingWriter::create(path, stream, {}, test::smallCalibration(512, 256), {}, 2);
    ASSERT_TRUE(writer.ok());
    const RawFrame frame = test::smallFrame(stream, 0);
    RawFrame numbered = frame;
    constexpr int kFrames = 300;
    for (int i = 0; i < kFrames; ++i) {
        numbered.t_ns = frame.t_ns + i;
        numbered.sequence = i;
        ASSERT_TRUE(writer.value()->push(numbered).ok());
    }
    while (writer.value()->progress().queued > 0) std::this_thread::yield();
    numbered.t_ns = frame.t_ns + kFrames;
    ASSERT_TRUE(writer.value()->push(numbered).ok());  // notes the gap before it
    ASSERT_TRUE(writer.value()->finish().ok());
    const RecordingProgress progress = writer.value()->progress();
    EXPECT_EQ(progress.written + progress.dropped, kFrames + 1);
    EXPECT_GT(progress.dropped, 0);
    auto reader = RecordingReader::open(path);
    ASSERT_TRUE(reader.ok());
    EXPECT_EQ(reader.value()->frameCount(), progress.written);
    std::int64_t noted = 0;
    for (const DropRecord& drop : reader.value()->drops()) noted += drop.count;
    EXPECT_EQ(noted, progress.dropped);
}

}  // namespace
}  // namespace kova::camera
