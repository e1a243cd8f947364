#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sqlite3.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>

#include "camera/recording/recording_reader.h"
#include "camera/recording/recording_writer.h"
#include "tests/support/recordings.h"
#include "tests/support/test_data.h"
#include "tools/progress.h"
#include "tools/report.h"

namespace kova {
namespace {

namespace fs = std::filesystem;

struct Outcome {
    int exit_code = -1;
    std::string out;  ///< standard output
    std::string err;  ///< standard error
};

class Verbs : public testing::Test {
protected:
    void SetUp() override {
        stream_ = test::smallStream();
        file_ = folder_ / "a.kova";
        camera::RecordingOptions options;
        options.settings = {{"made by", "a test"}};
        auto writer = camera::RecordingWriter::create(file_, stream_, test::smallCamera(),
                                                      test::smallCalibration(32, 24), options);
        ASSERT_TRUE(writer.ok());
        for (int i = 0; i < 10; ++i)
            ASSERT_TRUE(writer.value()->write(test::smallFrame(stream_, i)).ok());
        ASSERT_TRUE(writer.value()->finish().ok());
    }

    Outcome kova(const std::string& arguments) {
        const std::string errors = folder_ / "stderr";
        const std::string command = "cd '" + folder_.path().string() + "' && '" KOVA_BINARY "' " +
                                    arguments + " 2> '" + errors + "'";
        Outcome outcome;
        std::FILE* pipe = ::popen(command.c_str(), "r");
        char buffer[4096];
        for (std::size_t n = 0; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            outcome.out.append(buffer, n);
        const int status = ::pclose(pipe);
        outcome.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        std::ifstream in(errors);
        outcome.err.assign(std::istreambuf_iterator<char>(in), {});
        return outcome;
    }

    void sql(const std::string& text) {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(file_.c_str(), &db), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(db, text.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(db);
    }

    test::TemporaryFolder folder_;
    camera::StreamInfo stream_;
    std::string file_;
};

TEST_F(Verbs, InfoForPeople) {
    const Outcome o = kova("info a.kova");
    EXPECT_EQ(o.exit_code, 0);
    EXPECT_EQ(o.err, "");
    EXPECT_EQ(o.out.substr(o.out.find('\n') + 1),
              "Format       1.0\n"
              "Camera       Test camera (Quelvar P1, serial number 4000000001, hardware 1.2)\n"
              "Stream       32x24 px per eye, side_by_side, grey, zstd\n"
              "Frames       10\n"
              "Duration     0.300 s\n"
              "Rate         30 frames/s nominal, 30.00 measured\n"
              "Drops        none\n"
              "IMU          30 samples\n"
              "Calibration  not rectified, baseline 60.00 mm\n"
              "  left       fx 28.80, fy 28.80, cx 16.00, cy 12.00, k1 0.0000\n"
              "  right      fx 28.80, fy 28.80, cx 16.00, cy 12.00, k1 0.0000\n"
              "Setting      made by = a test\n");
}

TEST_F(Verbs, InfoForMachines) {
    const Outcome o = kova("info --json a.kova");
    EXPECT_EQ(o.exit_code, 0);
    const auto json = nlohmann::json::parse(o.out);
    EXPECT_EQ(json["frames"]["count"], 10);
    EXPECT_EQ(json["camera"]["serial_number"], 4000000001u);
    EXPECT_EQ(json["stream"]["codec"], "zstd");
    EXPECT_EQ(json["calibration"]["baseline_mm"], 60.0);
    EXPECT_EQ(json["settings"]["made by"], "a test");
}

TEST_F(Verbs, BrokenFilesGiveOneClearLine) {
    for (const char* verb : {"info", "info --json", "check"}) {
        const Outcome missing = kova(std::string(verb) + " missing.kova");
        EXPECT_EQ(missing.exit_code, 1);
        EXPECT_EQ(missing.out, "");
        EXPECT_NE(missing.err.find("No such file"), std::string::npos) << missing.err;
        EXPECT_EQ(std::count(missing.err.begin(), missing.err.end(), '\n'), 1) << missing.err;
    }
    fs::resize_file(file_, fs::file_size(file_) - 1);
    const Outcome cut = kova("info a.kova");
    EXPECT_EQ(cut.exit_code, 1);
    EXPECT_NE(cut.err.find("its end is missing"), std::string::npos) << cut.err;
}

TEST_F(Verbs, WrongUsage) {
    EXPECT_EQ(kova("info").exit_code, 2);
    EXPECT_EQ(kova("trim a.kova b.kova --frames 5").exit_code, 2);
    EXPECT_EQ(kova("trim a.kova b.kova --frames 20:30").exit_code, 2);
    EXPECT_EQ(kova("trim a.kova a.kova --force").exit_code, 2);
    EXPECT_EQ(kova("import . --layout spiral").exit_code, 2);
    const Outcome misspelt = kova("inof a.kova");
    EXPECT_EQ(misspelt.exit_code, 2);
    EXPECT_NE(misspelt.err.find("did you mean 'info'"), std::string::npos) << misspelt.err;
    EXPECT_EQ(kova("check a.kova").exit_code, 0);  // nothing of this touched the file
}

TEST_F(Verbs, CheckFindsDamagedFramesAndGaps) {
    EXPECT_NE(kova("check a.kova").out.find("Result       good"), std::string::npos);
    sql("UPDATE frames SET crc32 = 1 WHERE id = 4; UPDATE frames SET t_ns = t_ns + 1000000000, "
        "sequence = sequence + 5 WHERE id = 9");
    const Outcome o = kova("check a.kova");
    EXPECT_EQ(o.exit_code, 1);
    EXPECT_NE(o.out.find("frame 4: "), std::string::npos) << o.out;
    EXPECT_NE(o.out.find("Unreadable   1\n"), std::string::npos);
    EXPECT_NE(o.out.find("Gaps         1, the longest distance 1.033 s"), std::string::npos);
    EXPECT_NE(o.out.find("Lost         5 by the camera's count"), std::string::npos);
    EXPECT_NE(o.out.find("Result       damaged"), std::string::npos);
}

TEST_F(Verbs, TrimKeepsThePicturesByteForByte) {
    ASSERT_EQ(kova("trim a.kova b.kova --frames 3:6").exit_code, 0);
    ASSERT_EQ(kova("trim a.kova c.kova --from 0.1 --to 0.2").exit_code, 0);
    EXPECT_EQ(kova("trim a.kova b.kova --frames 3:6").exit_code, 1);  // exists
    EXPECT_EQ(kova("trim a.kova b.kova --frames 3:6 --force").exit_code, 0);
    auto whole = camera::RecordingReader::open(file_);
    ASSERT_TRUE(whole.ok());
    for (const char* name : {"b.kova", "c.kova"}) {
        auto part = camera::RecordingReader::open(folder_ / name);
        ASSERT_TRUE(part.ok());
        ASSERT_EQ(part.value()->frameCount(), 4);
        camera::RawFrame a, b;
        for (int i = 0; i < 4; ++i) {
            ASSERT_TRUE(whole.value()->read(3 + i, a).ok());
            ASSERT_TRUE(part.value()->read(i, b).ok());
            EXPECT_EQ(a.data, b.data);
            EXPECT_EQ(a.t_ns, b.t_ns);
            EXPECT_EQ(a.sequence, b.sequence);
            EXPECT_EQ(a.imu.size(), b.imu.size());
        }
    }
}

TEST_F(Verbs, WhatWasExportedCanBeImported) {
    ASSERT_EQ(kova("export a.kova out --frames 2:").exit_code, 0);
    EXPECT_EQ(kova("export a.kova out").exit_code, 1);  // not empty
    EXPECT_TRUE(fs::exists(folder_ / "out/timestamps.csv"));
    std::ifstream imu(folder_ / "out/imu.csv");
    std::string line;
    int lines = 0;
    while (std::getline(imu, line)) ++lines;
    EXPECT_EQ(lines, 1 + 8 * 3);
    const Outcome import = kova("import out --fps 30 -o again.kova");
    ASSERT_EQ(import.exit_code, 0) << import.err;
    EXPECT_EQ(import.err, "");  // no bar where there is no terminal
    auto before = camera::RecordingReader::open(file_);
    auto after = camera::RecordingReader::open(folder_ / "again.kova");
    ASSERT_TRUE(after.ok());
    ASSERT_EQ(after.value()->frameCount(), 8);
    camera::RawFrame a, b;
    ASSERT_TRUE(before.value()->read(5, a).ok());
    ASSERT_TRUE(after.value()->read(3, b).ok());
    EXPECT_EQ(a.data, b.data);
    EXPECT_EQ(after.value()->calibration().translation_mm[0], -60);
    ASSERT_EQ(kova("export a.kova rectified --rectified").exit_code, 0);
    EXPECT_EQ(kova("import rectified --fps 30 -o r.kova").exit_code, 0);
}

TEST(Progress, Line) {
    EXPECT_EQ(tools::Progress::line("Copying", 1, 2),
              "Copying [" + std::string(20, '#') + std::string(20, ' ') + "]  50 %");
    EXPECT_EQ(tools::Progress::line("Copying", 9, 9),
              "Copying [" + std::string(40, '#') + "] 100 %");
}

TEST(Report, FrameRanges) {
    EXPECT_EQ(tools::parseFrameRange("3:6")->second, 6);
    EXPECT_EQ(tools::parseFrameRange(":6")->first, 0);
    EXPECT_EQ(tools::parseFrameRange("4:")->first, 4);
    for (const char* wrong : {"", ":", "3", "6:3", "a:b", "-1:4", "1:2:3", "1: 2"})
        EXPECT_FALSE(tools::parseFrameRange(wrong)) << wrong;
}

}  // namespace
}  // namespace kova
