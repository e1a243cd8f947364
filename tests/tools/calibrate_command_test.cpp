#include "tools/commands/calibrate_command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "camera/calibration/store.h"
#include "tests/camera/calibration/board_pictures.h"
#include "tests/support/test_data.h"

namespace kova::tools {
namespace {

using testing::HasSubstr;

struct Ran {
    int code = 0;
    std::string out, err;
};

Ran run(std::vector<std::string> arguments) {
    const auto command = makeCalibrateCommand();
    CLI::App app;
    command->declare(app);
    std::reverse(arguments.begin(), arguments.end());
    app.parse(arguments);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Ran ran;
    ran.code = command->run();
    ran.out = testing::internal::GetCapturedStdout();
    ran.err = testing::internal::GetCapturedStderr();
    return ran;
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

    /// Views of a chessboard, left and right of a camera with a baseline of 80 mm.
    std::string boards(int views) {
        namespace ct = camera::test;
        const auto pictures = folder_ / "boards";
        std::filesystem::create_directories(pictures / "left");
        std::filesystem::create_directories(pictures / "right");
        camera::CameraIntrinsics eye{
            380, 380, 240, 180, camera::LensModel::kRadialTangential, {-0.2, 0.05, 0, 0}};
        const ct::BoardTexture texture = ct::drawBoard({});
        const ct::BoardCamera camera(eye, 480, 360);
        std::mt19937 random(1);
        for (int i = 0; i < views; ++i) {
            cv::Matx33d rotation;
            cv::Rodrigues(cv::Vec3d(0.5 * std::sin(i * 2.4), 0.5 * std::cos(i * 3.1), 0.1 * i),
                          rotation);
            const double z = 480 * (1 + 0.15 * (i % 3));
            const cv::Vec3d centre(0.24 * z * std::cos(i * 1.7) + 40, 0.16 * z * std::sin(i * 1.1),
                                   z);
            const cv::Vec3d at = centre - rotation * cv::Vec3d(100, 62.5, 0);
            const std::string name = std::to_string(i) + ".png";
            save(camera.see(texture, rotation, at, random), pictures / "left" / name);
            save(camera.see(texture, rotation, at - cv::Vec3d(80, 0, 0), random),
                 pictures / "right" / name);
        }
        return pictures.string();
    }

    test::TemporaryFolder folder_;
};

TEST_F(CalibrateCommand, KeepsOneCalibrationPerSerialNumber) {
    const std::string pictures = boards(9);
    const Ran first = run({pictures, "--serial", "77"});
    ASSERT_EQ(0, first.code) << first.err;
    EXPECT_THAT(first.out, HasSubstr("Baseline      79.9"));
    EXPECT_THAT(first.out, HasSubstr("depth error"));
    EXPECT_THAT(first.err, HasSubstr("written to"));
    const auto kept = camera::findCalibration(77, 480, 360);
    ASSERT_TRUE(kept.ok()) << kept.status().message();
    EXPECT_NEAR(80, kept.value().baselineMm(), 0.8);

    const Ran again = run({pictures, "--serial", "77"});
    EXPECT_EQ(2, again.code);
    EXPECT_THAT(again.err, HasSubstr("--force"));
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
