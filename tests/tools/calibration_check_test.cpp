// `kova calibrate --check` on pictures with known cameras, one mistake at a time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "camera/recording/recording_reader.h"
#include "camera/sources/decode.h"
#include "tests/support/test_data.h"
#include "tests/tools/run_command.h"
#include "tools/commands/calibrate_command.h"
#include "tools/commands/simulate_command.h"

namespace kova::tools {
namespace {

namespace fs = std::filesystem;
using camera::StereoCalibration;
using testing::HasSubstr;

cv::Mat asMat(const camera::Image<std::uint8_t>& image) {
    return {image.height(), image.width(), CV_8U, const_cast<std::uint8_t*>(image.data()),
            static_cast<std::size_t>(image.stride())};
}

/// A street through distorted lenses, as a recording and as pictures, and its calibration.
class CalibrationCheck : public testing::Test {
protected:
    static constexpr int kFrames = 3;

    static void SetUpTestSuite() {
        folder_ = new test::TemporaryFolder;
        const std::string file = *folder_ / "street.kova";
        simulate({"--distorted"}, file);
        const auto reader = camera::RecordingReader::open(file);
        ASSERT_TRUE(reader.ok());
        truth_ = reader.value()->calibration();
        camera::FrameDecoder decoder(reader.value()->stream());
        camera::RawFrame frame;
        camera::StereoPair pair;
        for (const char* name : {"left", "right", "middlebury"})
            fs::create_directories(folder_->path() / name);
        for (int i = 0; i < kFrames; ++i) {
            ASSERT_TRUE(reader.value()->read(i, frame).ok());
            ASSERT_TRUE(decoder.decode(frame, pair).ok());
            const std::string name = std::to_string(i) + ".png";
            cv::imwrite(*folder_ / ("left/" + name), asMat(pair.left));
            cv::imwrite(*folder_ / ("right/" + name), asMat(pair.right));
        }
        cv::imwrite(*folder_ / "middlebury/im0.png", asMat(pair.left));
        cv::imwrite(*folder_ / "middlebury/im1.png", asMat(pair.right));
        cv::Mat both;
        cv::hconcat(asMat(pair.left), asMat(pair.right), both);
        cv::imwrite(*folder_ / "both.png", both);
    }
    static void TearDownTestSuite() { delete folder_; }

    static void simulate(const std::vector<std::string>& options, const std::string& file) {
        std::vector<std::string> all = {"-o",
                                        file,
                                        "--scene",
                                        "street",
                                        "--no-residual",
                                        "--mode",
                                        "SD400_15FPS",
                                        "--frames",
                                        std::to_string(kFrames)};
        all.insert(all.end(), options.begin(), options.end());
        ASSERT_EQ(0, run(makeSimulateCommand(), all).code);
    }

    Ran check(const std::string& input, std::vector<std::string> options = {}) {
        options.insert(options.begin(), {input, "--check"});
        return run(makeCalibrateCommand(), options);
    }
    /// With a calibration that is written as it is, impossible or not.
    Ran check(const std::string& input, const StereoCalibration& calibration,
              std::vector<std::string> options = {}) {
        const std::string file = *folder_ / "calibration.yaml";
        std::ofstream(file) << camera::toYaml(calibration);
        options.insert(options.end(), {"--calibration", file});
        return check(input, options);
    }
    std::string recording() const { return *folder_ / "street.kova"; }

    static test::TemporaryFolder* folder_;
    static StereoCalibration truth_;
};

test::TemporaryFolder* CalibrationCheck::folder_ = nullptr;
StereoCalibration CalibrationCheck::truth_;

TEST_F(CalibrationCheck, TheRightOneFitsHoweverThePicturesLie) {
    const Ran ran = check(recording());
    EXPECT_EQ(0, ran.code) << ran.out << ran.err;
    EXPECT_THAT(ran.out, HasSubstr("640x400, baseline 120.0 mm, view about 80 degrees wide"));
    EXPECT_THAT(ran.out, HasSubstr("the calibration fits"));
    EXPECT_EQ(0, check(folder_->path().string(), truth_).code);
    EXPECT_EQ(0, check(*folder_ / "left", truth_, {"--right", *folder_ / "right"}).code);
    EXPECT_EQ(0, check(*folder_ / "middlebury", truth_).code);
    EXPECT_EQ(0, check(*folder_ / "both.png", truth_).code);
    EXPECT_EQ(0,
              check(*folder_ / "left/1.png", truth_, {"--right", *folder_ / "right/1.png"}).code);
    const Ran missing = check(*folder_ / "middlebury");
    EXPECT_EQ(1, missing.code);
    EXPECT_THAT(missing.err, HasSubstr("--calibration"));
}

TEST_F(CalibrationCheck, AWrongUnitIsNamed) {
    StereoCalibration metres = truth_;
    for (double& t : metres.translation_mm) t /= 1000;
    const Ran ran = check(recording(), metres);
    EXPECT_EQ(1, ran.code);
    EXPECT_THAT(ran.err, HasSubstr("metres instead of millimetres"));
    // Centimetres are a possible baseline: it is said, for people to see.
    StereoCalibration centimetres = truth_;
    for (double& t : centimetres.translation_mm) t /= 10;
    EXPECT_THAT(check(recording(), centimetres).out, HasSubstr("baseline 12.0 mm"));
}

TEST_F(CalibrationCheck, AWrongSignIsNamed) {
    StereoCalibration wrong = truth_;
    for (double& t : wrong.translation_mm) t = -t;
    const Ran ran = check(recording(), wrong);
    EXPECT_EQ(1, ran.code);
    EXPECT_THAT(ran.err, HasSubstr("the sign is wrong"));

    StereoCalibration turned = truth_;
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k)
            turned.right_from_left[i * 3 + k] = truth_.right_from_left[k * 3 + i];
    const Ran r = check(recording(), turned);
    EXPECT_EQ(1, r.code);
    EXPECT_THAT(r.out, HasSubstr("R turns the wrong way"));
}

TEST_F(CalibrationCheck, SwappedEyesAreNamed) {
    const Ran ran = check(*folder_ / "right", truth_, {"--right", *folder_ / "left"});
    EXPECT_EQ(1, ran.code);
    EXPECT_THAT(ran.out, HasSubstr("the eyes are swapped"));
}

TEST_F(CalibrationCheck, AnotherResolutionIsNamed) {
    const Ran ran = check(recording(), camera::scaledCalibration(truth_, 1280, 800));
    EXPECT_EQ(1, ran.code);
    EXPECT_THAT(ran.err, HasSubstr("made for pictures of 1280x800, these are 640x400"));

    // The size is right, the numbers are another's.
    StereoCalibration numbers = camera::scaledCalibration(truth_, 1280, 800);
    numbers.width = 640;
    numbers.height = 400;
    const Ran r = check(recording(), numbers);
    EXPECT_EQ(1, r.code);
    EXPECT_THAT(r.out, HasSubstr("numbers belong to pictures of twice this size")) << r.err;
}

TEST_F(CalibrationCheck, RectifiedPicturesAreNoticed) {
    const std::string file = *folder_ / "rectified.kova";
    simulate({}, file);
    EXPECT_EQ(0, check(file).code);
    const Ran ran = check(file, truth_);
    EXPECT_EQ(1, ran.code);
    EXPECT_THAT(ran.out, HasSubstr("rectified already"));
}

TEST_F(CalibrationCheck, RealSetsAreReadAsTheyLie) {
    const fs::path kitti = test::realData("kitti2015-gt");
    const fs::path middlebury = test::realData("middlebury-v3-trainingQ/Teddy");
    const fs::path street = test::realData("kitti-odometry-seq1");
    KOVA_NEED_REAL_DATA(kitti);
    KOVA_NEED_REAL_DATA(middlebury);
    KOVA_NEED_REAL_DATA(street);
    EXPECT_THAT(check(middlebury).out, HasSubstr("the calibration fits"));
    EXPECT_THAT(check(street, {"--every", "20"}).out, HasSubstr("the calibration fits"));
    StereoCalibration c;
    c.width = 1242;
    c.height = 375;
    c.left = {721.5377, 721.5377, 609.5593, 172.854, camera::LensModel::kRadialTangential, {}};
    c.right = c.left;
    c.translation_mm = {-532.7, 0, 0};
    c.rectified = true;
    EXPECT_THAT(check(kitti, c, {"--every", "3"}).out, HasSubstr("the calibration fits"));
    for (const char* set : {"elas-urban-pgm", "middlebury-2001-2006/Cones",
                            "middlebury-2001-2006/Baby1", "eth3d-two-view-nogt"}) {
        const Ran ran = check(test::realData(set), c);
        EXPECT_THAT(ran.err, HasSubstr("these are ")) << set << " is read, its size is another";
    }
}

}  // namespace
}  // namespace kova::tools
