#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <sstream>

#include "tests/support/simulated_recording.h"
#include "tests/support/test_data.h"

namespace kova {
namespace {

struct Outcome {
    int exit_code = -1;
    std::string out;
};

class Detect : public testing::Test {
protected:
    static constexpr int kFrames = 4;

    void SetUp() override {
        test::SimulatedRecordingOptions options;
        options.scene = "wall";
        options.frames = kFrames;
        options.width = 320;
        options.height = 200;
        options.still = true;
        test::recordSimulation(folder_ / "a.kova", options);
    }

    Outcome detect(const std::string& arguments) {
        const std::string command = "cd '" + folder_.path().string() +
                                    "' && '" KOVA_BINARY "' detect " + arguments + " 2> stderr";
        Outcome outcome;
        std::FILE* pipe = ::popen(command.c_str(), "r");
        char buffer[4096];
        for (std::size_t n = 0; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            outcome.out.append(buffer, n);
        const int status = ::pclose(pipe);
        outcome.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return outcome;
    }

    static std::vector<nlohmann::json> lines(const std::string& text) {
        std::vector<nlohmann::json> found;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);)
            found.push_back(nlohmann::json::parse(line));
        return found;
    }

    test::TemporaryFolder folder_;
};

TEST_F(Detect, PrintsTheDocumentedKeysOfEveryFrame) {
    const Outcome o = detect("a.kova");
    ASSERT_EQ(o.exit_code, 0);
    const std::vector<nlohmann::json> frames = lines(o.out);
    ASSERT_EQ(frames.size(), std::size_t{kFrames});
    for (int i = 0; i < kFrames; ++i) {
        const nlohmann::json& f = frames[i];
        EXPECT_EQ(f.at("frame"), i);
        EXPECT_EQ(f.at("width"), 320);
        EXPECT_EQ(f.at("height"), 200);
        for (const char* key : {"t_ns", "nearest", "obstacles", "drops"})
            EXPECT_TRUE(f.contains(key)) << key;
        for (const char* key : {"too_dark", "saturated", "low_texture", "brightness",
                                "saturated_part", "measured_part", "dropped_frames"})
            EXPECT_TRUE(f.at("health").contains(key)) << key;
        EXPECT_EQ(f.at("ground").at("state"), "found");
        for (const char* key : {"pitch_deg", "roll_deg", "height_mm", "flat", "support", "area"})
            EXPECT_TRUE(f.at("ground").contains(key)) << key;
        ASSERT_FALSE(f.at("obstacles").empty());
        for (const nlohmann::json& obstacle : f.at("obstacles"))
            for (const char* key : {"id", "age", "ahead_mm", "distance_mm", "sigma_mm",
                                    "lateral_mm", "width_mm", "confidence", "box"})
                EXPECT_TRUE(obstacle.contains(key)) << key;
        int end = 0;
        for (const nlohmann::json& column : f.at("columns")) {
            EXPECT_EQ(column.at("x").at(0), end);
            end = column.at("x").at(1);
            EXPECT_EQ(column.at("state") == "occupied", column.contains("distance_mm"));
        }
        EXPECT_EQ(end, 320);
    }
}

TEST_F(Detect, PrintsTheSameBytesOnEveryRun) {
    const Outcome first = detect("--mode fast a.kova"), second = detect("--mode fast a.kova");
    ASSERT_EQ(first.exit_code, 0);
    EXPECT_FALSE(first.out.empty());
    EXPECT_EQ(first.out, second.out);
}

TEST_F(Detect, TakesARangeOfFrames) {
    const std::vector<nlohmann::json> frames = lines(detect("--frames 1:2 a.kova").out);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].at("frame"), 1);
    EXPECT_EQ(frames[1].at("frame"), 2);
}

TEST_F(Detect, WritesSixViewsPerFrameButNotIntoAFullFolder) {
    ASSERT_EQ(detect("--frames 0:1 --views views a.kova").exit_code, 0);
    const std::filesystem::path views = folder_ / "views";
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(views))
        count += entry.path().extension() == ".png" && entry.file_size() > 100;
    EXPECT_EQ(count, 12);
    EXPECT_NE(detect("--frames 0:1 --views views a.kova").exit_code, 0);
    EXPECT_EQ(detect("--frames 0:1 --force --views views a.kova").exit_code, 0);
}

TEST_F(Detect, RefusesWhatItCannotRead) {
    EXPECT_NE(detect("missing.kova").exit_code, 0);
    EXPECT_NE(detect("--frames x a.kova").exit_code, 0);
    EXPECT_NE(detect("--mode best a.kova").exit_code, 0);
}

}  // namespace
}  // namespace kova
