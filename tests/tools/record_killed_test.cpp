// `kova record` is killed at random moments: what it had committed must be there.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <random>
#include <thread>

#include "camera/base/log.h"
#include "camera/recording/recording_reader.h"
#include "tests/support/test_data.h"

namespace kova {
namespace {

namespace fs = std::filesystem;

constexpr int kRounds = 20;
constexpr int kAtOnce = 20;

/// The recorder as a process of its own, killed `moment` after its file was made.
void recordAndKill(const std::string& file, std::chrono::milliseconds moment) {
    std::string arguments[] = {KOVA_BINARY, "record", file, "--mode", "SD400_15FPS", "--quiet"};
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    const pid_t process = ::fork();
    ASSERT_GE(process, 0);
    if (process == 0) {
        ::setenv("KOVA_SIMULATED_CAMERAS", "R0:scene=wall", 1);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    int status = 0;
    while (!fs::exists(file)) {
        ASSERT_EQ(::waitpid(process, &status, WNOHANG), 0) << "the recorder ended by itself";
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    std::this_thread::sleep_for(moment);
    ASSERT_EQ(::kill(process, SIGKILL), 0);
    ASSERT_EQ(::waitpid(process, &status, 0), process);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the recorder ended by itself";
}

/// Frames that the database itself, asked through a copy of what lies on the disk, calls committed;
/// -1 before it has its tables.
int committedFrames(const std::string& file, const fs::path& folder) {
    const fs::path copy = folder / "copy.kova";
    fs::copy_file(file, copy, fs::copy_options::overwrite_existing);
    if (fs::exists(file + "-journal"))
        fs::copy_file(file + "-journal", copy.string() + "-journal",
                      fs::copy_options::overwrite_existing);
    sqlite3* database = nullptr;
    EXPECT_EQ(sqlite3_open(copy.c_str(), &database), SQLITE_OK);
    sqlite3_stmt* count = nullptr;
    int frames = -1;
    if (sqlite3_prepare_v2(database, "SELECT count(*) FROM frames", -1, &count, nullptr) ==
            SQLITE_OK &&
        sqlite3_step(count) == SQLITE_ROW)
        frames = sqlite3_column_int(count, 0);
    sqlite3_finalize(count);
    sqlite3_close(database);
    fs::remove(copy);
    fs::remove(copy.string() + "-journal");
    return frames;
}

TEST(RecordKilled, EveryFileOpensWithEveryCommittedFrame) {
    camera::setLogSink([](camera::LogLevel, const std::string&, const std::string&) {});
    const char* seconds = std::getenv("KOVA_RECORD_SECONDS");
    const int longest_ms = 1000 * (seconds ? std::atoi(seconds) : 3);
    std::mt19937 random(2024);
    int with_frames = 0, repaired = 0, all_frames = 0;
    for (int round = 0; round < kRounds; round += kAtOnce) {
        const test::TemporaryFolder folder;
        std::vector<std::thread> recorders;
        for (int i = 0; i < kAtOnce; ++i)
            recorders.emplace_back(recordAndKill, folder / (std::to_string(i) + ".kova"),
                                   std::chrono::milliseconds(random() % longest_ms));
        for (std::thread& recorder : recorders) recorder.join();
        for (int i = 0; i < kAtOnce; ++i) {
            SCOPED_TRACE(round + i);
            const std::string file = folder / (std::to_string(i) + ".kova");
            const int committed = committedFrames(file, folder.path());
            auto reader = camera::RecordingReader::open(file);
            if (committed <= 0) {  // killed before its first frames were safe
                EXPECT_EQ(reader.status().code(), camera::ErrorCode::kInvalidFile)
                    << reader.status().message();
                continue;
            }
            ASSERT_TRUE(reader.ok()) << reader.status().message();
            camera::RecordingReader& recording = *reader.value();
            ASSERT_EQ(recording.frameCount(), committed);
            ++with_frames;
            all_frames += committed;
            repaired += recording.wasRepaired();
            camera::RawFrame frame;
            for (int n = 0; n < committed; ++n) {
                ASSERT_TRUE(recording.read(n, frame).ok()) << n;
                ASSERT_EQ(frame.data.size() > 1000, true) << n;
            }
        }
    }
    std::printf("%d of %d recordings had frames, %d in all; %d were repaired\n", with_frames,
                kRounds, all_frames, repaired);
    EXPECT_GT(with_frames, kRounds / 4) << "too few recordings got far enough to show anything";
    camera::setLogSink({});
}

}  // namespace
}  // namespace kova
