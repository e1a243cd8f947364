#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "camera/recording/recording_reader.h"
#include "tests/support/test_data.h"
#include "tools/commands/simulate_command.h"

namespace kova::tools {
namespace {

int simulate(std::vector<std::string> arguments) {
    const auto command = makeSimulateCommand();
    CLI::App app;
    command->declare(app);
    std::reverse(arguments.begin(), arguments.end());  // as CLI11 wants it
    app.parse(arguments);
    return command->run();
}

TEST(SimulateCommand, WritesARecordingAndItsTruth) {
    const test::TemporaryFolder folder;
    const std::string file = folder / "drive.kova";
    ASSERT_EQ(simulate({"-o", file, "--scene", "wall", "--mode", "SD400_15FPS", "--frames", "2",
                        "--truth"}),
              0);
    const auto reader = camera::RecordingReader::open(file);
    ASSERT_TRUE(reader.ok()) << reader.status().message();
    EXPECT_EQ(reader.value()->frameCount(), 2);
    for (const char* name : {"depth/000001.pfm", "labels/000001.png", "obstacle/000001.png",
                             "ground/000001.png", "poses.json", "scene.json"})
        EXPECT_TRUE(std::filesystem::exists(folder.path() / "drive.truth" / name)) << name;
    EXPECT_EQ(std::filesystem::file_size(folder.path() / "drive.truth" / "depth/000000.pfm"),
              std::string("Pf\n640 400\n-1.0\n").size() + 640u * 400 * 4);

    // Nothing is overwritten unasked, and a refusal leaves the recording as it was.
    EXPECT_NE(simulate({"-o", file, "--scene", "wall", "--frames", "1"}), 0);
    EXPECT_EQ(camera::RecordingReader::open(file).value()->frameCount(), 2);
}

TEST(SimulateCommand, WrongWordsEndWithAnError) {
    const test::TemporaryFolder folder;
    EXPECT_NE(simulate({"-o", folder / "a.kova", "--scene", "moon"}), 0);
    EXPECT_NE(simulate({"-o", folder / "a.kova", "--mode", "HD9000"}), 0);
    EXPECT_NE(simulate({"-o", folder / "a.kova", "--model", "R0", "--mode", "HD800_120FPS"}), 0);
    EXPECT_NE(simulate({}), 0);
    EXPECT_FALSE(std::filesystem::exists(folder / "a.kova"));
}

}  // namespace
}  // namespace kova::tools
