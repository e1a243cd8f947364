#include "tools/commands/calibrate_command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "camera/calibration/formats.h"
#include "camera/calibration/store.h"
#include "tests/camera/calibration/board_pictures.h"
#include "tests/support/test_data.h"
#include "tests/tools/run_command.h"

namespace kova::tools {
namespace {

using testing::HasSubstr;

Ran run(std::vector<std::string> arguments) {
    return tools::run(makeCalibrateCommand(), std::move(arguments));
}

void save(const camera::Image<std::uint8_t>& image, const std::filesystem::path& path) {
    const cv::Mat m(image.height(), image.width(), CV_8U, const_cast<std::uint8_t*>(image.data()),
                    static_cast<std::size_t>(image.stride()));
    cv::imwrite(path.string(), m);
}

class CalibrateCommand : public testing::Test {
protected:
    void SetUp() override { ::setenv("XDG_CONFIG_HOME", (folder_ / "config").c_str(), 1); }
    void TearDown() override { ::unsetenv("XDG_CONFIG_HOME"); }

    /// Views of a board, left and right of a camera with a baseline of 80 mm.
    std::string boards(int views, const camera::Board& board = {}) {
        namespace ct = camera::test;
        const auto pictures = folder_ / "boards";
        std::filesystem::create_directories(pictures / "left");
        std::filesystem::create_directories(pictures / "right");
        camera::StereoCalibration c;
        c.width = 480;
        c.height = 360;
        c.left = {380, 380, 240, 180, camera::LensModel::kRadialTangential, {-0.2, 0.05, 0, 0}};
        c.right = c.left;
        c.translation_mm = {-80, 0, 0};
        ct::Stage stage(board, c);
        int i = 0;
        for (const ct::BoardPose& pose : ct::poses(board, 480)) {
            if (i == views)
                break;
            const std::string name = std::to_string(i++) + ".png";
            save(stage.left(pose), pictures / "left" / name);
            save(stage.right(pose), pictures / "right" / name);
        }
        return pictures.string();
    }

    test::TemporaryFolder folder_;
};

TEST_F(CalibrateCommand, KeepsOneCalibrationPerSerialNumber) {
    const std::string pictures = boards(9);
    const Ran first = run({pictures, "--serial", "77"});
    ASSERT_EQ(0, first.code) << first.err;
    EXPECT_THAT(first.out, HasSubstr("Baseline      "));
    EXPECT_THAT(first.out, HasSubstr("depth error"));
    EXPECT_THAT(first.err, HasSubstr("written to"));
    const auto kept = camera::findCalibration(77, 480, 360);
    ASSERT_TRUE(kept.ok()) << kept.status().message();
    EXPECT_NEAR(80, kept.value().baselineMm(), 0.8);

    const Ran again = run({pictures, "--serial", "77"});
    EXPECT_EQ(2, again.code);
    EXPECT_THAT(again.err, HasSubstr("--force"));
}

TEST_F(CalibrateCommand, CalibratesFromACharucoBoard) {
    camera::Board board;
    board.kind = camera::BoardKind::kCharuco;
    board.columns = 7;
    board.rows = 5;
    board.square_mm = 45;
    const Ran ran = run({boards(12, board), "--board", "charuco", "--size", "7x5", "--square", "45",
                         "--serial", "79", "--json"});
    ASSERT_EQ(0, ran.code) << ran.err;
    const auto json = nlohmann::json::parse(ran.out);
    EXPECT_TRUE(json["accepted"]);
    EXPECT_NEAR(80, json["baseline_mm"].get<double>(), 0.4);
    EXPECT_NEAR(380, json["left"]["fx_px"].get<double>(), 1.9);
    EXPECT_LT(json["epipolar_rms_px"].get<double>(), 0.25);
    // z^2 / (fx b) times 0.25 px and the rows' error.
    ASSERT_EQ(4u, json["depth_error_mm"].size());
    const double px = std::hypot(0.25, json["epipolar_rms_px"].get<double>());
    const double fx_b = json["left"]["fx_px"].get<double>() * json["baseline_mm"].get<double>();
    for (const auto& [i, m] : {std::pair(0, 1.0), {1, 2.0}, {2, 5.0}, {3, 10.0}}) {
        EXPECT_EQ(m, json["depth_error_mm"][i]["distance_m"]);
        EXPECT_NEAR(m * m * 1e6 / fx_b * px, json["depth_error_mm"][i]["error_mm"], 1e-6);
    }
    EXPECT_TRUE(camera::findCalibration(79).ok());
}

TEST_F(CalibrateCommand, CalibratesFromCirclesAndLeavesAnOutlierOut) {
    camera::Board board;
    board.kind = camera::BoardKind::kAsymmetricCircles;
    board.columns = 4;
    board.rows = 11;
    board.square_mm = 20;
    const std::filesystem::path pictures = boards(12, board);
    // One view whose eyes saw different moments.
    std::filesystem::copy_file(pictures / "right" / "3.png", pictures / "right" / "6.png",
                               std::filesystem::copy_options::overwrite_existing);
    const Ran ran = run({pictures.string(), "--board", "circles", "--size", "4x11", "--square",
                         "20", "--output", folder_ / "rig.yaml", "--json"});
    ASSERT_EQ(0, ran.code) << ran.err << ran.out;
    const auto json = nlohmann::json::parse(ran.out);
    EXPECT_NEAR(80, json["baseline_mm"].get<double>(), 0.4);
    for (const auto& view : json["views"])
        EXPECT_EQ(view["name"] == "6.png", view["rejected"]) << view;
    EXPECT_TRUE(camera::readCalibration(folder_ / "rig.yaml").ok());
}

TEST_F(CalibrateCommand, RefusesABadResultAndKeepsNothing) {
    const std::filesystem::path pictures = boards(9);
    // The eyes swapped: every view is good in itself, the result is impossible.
    const Ran swapped = run(
        {(pictures / "right").string(), "--right", (pictures / "left").string(), "--serial", "80"});
    EXPECT_EQ(1, swapped.code);
    EXPECT_THAT(swapped.err, HasSubstr("the eyes are swapped"));
    EXPECT_THAT(swapped.out, HasSubstr("Baseline"));
    EXPECT_FALSE(camera::findCalibration(80).ok());
    // Views that do not belong together.
    for (int i = 0; i < 9; ++i)
        std::filesystem::copy_file(pictures / "left" / (std::to_string((i + 4) % 9) + ".png"),
                                   pictures / "right" / (std::to_string(i) + ".png"),
                                   std::filesystem::copy_options::overwrite_existing);
    const Ran mixed = run({pictures.string(), "--serial", "80"});
    EXPECT_NE(0, mixed.code);
    EXPECT_THAT(mixed.err, testing::AnyOf(HasSubstr("stereo error is"), HasSubstr("are needed")));
    EXPECT_FALSE(camera::findCalibration(80).ok());
}

TEST_F(CalibrateCommand, SaysWhatToGive) {
    EXPECT_THAT(run({}).err, HasSubstr("give a recording"));
    EXPECT_EQ(2, run({}).code);
    EXPECT_THAT(run({"a.kova", "--camera", "0"}).err, HasSubstr("not both"));
    EXPECT_THAT(run({"--camera", "7"}).err, HasSubstr("there is no camera 7"));
    EXPECT_THAT(run({"--camera", "0", "--check"}).err, HasSubstr("kova record"));
    try {
        run({"a.kova", "--board", "chess"});
        ADD_FAILURE() << "there is no such board";
    } catch (const CLI::ParseError& e) {
        EXPECT_THAT(e.what(), HasSubstr("chess not in {charuco,chessboard,circles}"));
    }
}

TEST_F(CalibrateCommand, ALiveCameraIsKnownByItsSerialNumber) {
    ::setenv("KOVA_SIMULATED_CAMERAS", "P1:seed=5:scene=wall", 1);
    const Ran none = run({"--camera", "0", "--mode", "SD400_15FPS", "--seconds", "0.2"});
    EXPECT_EQ(2, none.code);
    EXPECT_THAT(none.err, HasSubstr("show the board"));
    EXPECT_THAT(none.err, HasSubstr("in 0 pairs, 6 are needed"));
    EXPECT_THAT(run({"--camera", "0", "--mode", "HD9"}).err, HasSubstr("unknown mode 'HD9'"));

    camera::StereoCalibration c;
    c.width = 640;
    c.height = 400;
    c.left = {380, 380, 320, 200, camera::LensModel::kRadialTangential, {}};
    c.right = c.left;
    c.translation_mm = {-120, 0, 0};
    ASSERT_TRUE(camera::storeCalibration(9'000'005, c).ok());
    const Ran there = run({"--camera", "0"});
    ::unsetenv("KOVA_SIMULATED_CAMERAS");
    EXPECT_EQ(2, there.code);
    EXPECT_THAT(there.err, HasSubstr("9000005.yaml: is there already; --force"));
}

TEST_F(CalibrateCommand, RefusesAWrongBoardAndSaysWhy) {
    const Ran ran = run({boards(2), "--serial", "78", "--json"});
    EXPECT_EQ(2, ran.code);
    EXPECT_THAT(ran.out, HasSubstr("\"accepted\": false"));
    EXPECT_THAT(ran.err, HasSubstr("6 are needed"));
    EXPECT_FALSE(camera::findCalibration(78).ok());
    EXPECT_THAT(run({folder_.path().string(), "--size", "9by6"}).err, HasSubstr("no pairs"));
    EXPECT_THAT(run({boards(1), "--size", "9by6"}).err, HasSubstr("as in 9x6"));
    EXPECT_EQ(1, run({(folder_ / "none.kova").string()}).code);
}

TEST_F(CalibrateCommand, ChecksRealPicturesInWords) {
    const auto flight = test::realData("euroc-micro-imu");
    KOVA_NEED_REAL_DATA(flight);
    const Ran fits = run({flight.string(), "--check", "--every", "5"});
    EXPECT_EQ(0, fits.code);
    EXPECT_THAT(fits.out, HasSubstr("the calibration fits"));
    const Ran swapped =
        run({(flight / "cam1/data").string(), "--right", (flight / "cam0/data").string(), "--check",
             "--every", "5", "--calibration", flight.string()});
    EXPECT_EQ(1, swapped.code);
    EXPECT_THAT(swapped.out, HasSubstr("does not fit"));
    const Ran other = run({test::realData("opencv-doc-samples").string(), "--check",
                           "--calibration", flight.string()});
    EXPECT_EQ(1, other.code);
    EXPECT_THAT(other.err, HasSubstr("made for pictures of 752x480, these are 640x480"));
}

}  // namespace
}  // namespace kova::tools
