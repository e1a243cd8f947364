#include "camera/datasets/import.h"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <cmath>
#include <fstream>

#include "camera/base/log.h"
#include "camera/recording/recording_reader.h"
#include "camera/sources/decode.h"
#include "tests/support/recordings.h"
#include "tests/support/test_data.h"

namespace kova::camera {
namespace {

namespace fs = std::filesystem;

constexpr int kWidth = 40;
constexpr int kHeight = 20;

void writePicture(const fs::path& path, int seed, bool colour = false, int width = kWidth) {
    fs::create_directories(path.parent_path());
    auto bytes = test::noise(static_cast<std::size_t>(width * kHeight * (colour ? 3 : 1)),
                             static_cast<std::uint32_t>(seed));
    ASSERT_TRUE(cv::imwrite(path.string(),
                            cv::Mat(kHeight, width, colour ? CV_8UC3 : CV_8UC1, bytes.data())));
}

void writeText(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

constexpr const char* kLeftMatrix = "36 0 20 0 0 36 10 0 0 0 1 0";
constexpr const char* kRightMatrix = "36 0 20 -18 0 36 10 0 0 0 1 0";  // baseline 0.5 m

class Import : public testing::Test {
protected:
    Import() {
        setLogSink([](LogLevel, const std::string&, const std::string&) {});
    }
    ~Import() override { setLogSink({}); }

    StereoSequence openOk(const SequenceOptions& options = {}) {
        auto sequence = openSequence(set_, options);
        EXPECT_TRUE(sequence.ok()) << sequence.status().message();
        return sequence.value();
    }
    ErrorCode openCode(const SequenceOptions& options = {}) {
        const auto sequence = openSequence(set_, options);
        message_ = sequence.status().message();
        return sequence.status().code();
    }
    std::unique_ptr<RecordingReader> import(const StereoSequence& sequence) {
        const std::string path = folder_ / "out.kova";
        RecordingOptions options;
        options.overwrite = true;
        const auto report = importSequence(sequence, path, options);
        EXPECT_TRUE(report.ok()) << report.status().message();
        auto reader = RecordingReader::open(path);
        EXPECT_TRUE(reader.ok()) << reader.status().message();
        return std::move(reader.value());
    }

    test::TemporaryFolder folder_;
    fs::path set_ = folder_ / "a set";
    std::string message_;
};

TEST_F(Import, KittiOdometry) {
    for (int i = 0; i < 3; ++i) {
        const std::string name = "00000" + std::to_string(i) + ".png";
        writePicture(set_ / "image_0" / name, 2 * i);
        writePicture(set_ / "image_1" / name, 2 * i + 1);
    }
    writePicture(set_ / "image_0/000009.png", 77);
    writeText(set_ / "times.txt", "0.000000e+00\n1.036224e-01\n2.072e-01\n");
    writeText(set_ / "calib.txt", std::string("P0: ") + kLeftMatrix + "\nP1: " + kRightMatrix);
    const StereoSequence sequence = openOk();
    EXPECT_EQ(sequence.layout, DatasetLayout::kKittiOdometry);
    EXPECT_EQ(sequence.unpaired, 1);
    EXPECT_TRUE(sequence.calibration.rectified);
    EXPECT_NEAR(sequence.calibration.baselineMm(), 500, 1e-9);
    const auto reader = import(sequence);
    ASSERT_EQ(reader->frameCount(), 3);
    EXPECT_EQ(reader->timeNs(1), 103622400);
    EXPECT_NEAR(reader->stream().nominal_fps, 9.65, 0.02);

    // The pixels are the set's own.
    RawFrame frame;
    StereoPair pair;
    FrameDecoder decoder(reader->stream());
    ASSERT_TRUE(reader->read(2, frame).ok());
    ASSERT_TRUE(decoder.decode(frame, pair).ok());
    const auto left = test::noise(kWidth * kHeight, 4);
    const auto right = test::noise(kWidth * kHeight, 5);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            ASSERT_EQ(pair.left.at(x, y), left[static_cast<std::size_t>(y * kWidth + x)]);
            ASSERT_EQ(pair.right.at(x, y), right[static_cast<std::size_t>(y * kWidth + x)]);
        }
    EXPECT_TRUE(pair.left_colour.empty());
}

TEST_F(Import, KittiStereoTakesTheTenthPicturesInColour) {
    for (const char* name : {"000000_10.png", "000000_11.png", "000003_10.png"})
        for (const char* eye : {"image_2", "image_3"})
            writePicture(set_ / "training" / eye / name, name[5], true);
    SequenceOptions options;
    options.fps = 1;
    EXPECT_EQ(openCode(options), ErrorCode::kInvalidArgument);
    EXPECT_NE(message_.find("--calibration"), std::string::npos);
    options.intrinsics = {36, 36, 20, 10, 500};
    StereoSequence sequence = openOk(options);
    EXPECT_EQ(sequence.layout, DatasetLayout::kKittiStereo);
    ASSERT_EQ(sequence.pairs.size(), 2u);
    EXPECT_NEAR(sequence.calibration.baselineMm(), 500, 1e-9);
    EXPECT_EQ(import(sequence)->stream().pixel_format, PixelFormat::kRgb);
    writeText(set_ / "training/calib_cam_to_cam/000000.txt",
              std::string("P_rect_02: ") + kLeftMatrix + "\nP_rect_03: " + kRightMatrix + "\n");
    options.intrinsics.reset();
    EXPECT_NEAR(openOk(options).calibration.left.fx, 36, 1e-9);
}

TEST_F(Import, UnlabelledNeedsARate) {
    writePicture(set_ / "image_l/a.png", 1);
    writePicture(set_ / "image_r/a.png", 2);
    writePicture(set_ / "image_l/b.png", 1);
    writePicture(set_ / "image_r/b.png", 2);
    writeText(set_ / "calib.txt", std::string(kLeftMatrix) + "\n" + kRightMatrix);
    EXPECT_EQ(openCode(), ErrorCode::kInvalidArgument);
    EXPECT_NE(message_.find("--fps"), std::string::npos);
    SequenceOptions options;
    options.fps = 8;
    EXPECT_EQ(openOk(options).pairs[1].t_ns, 125000000);
}

TEST_F(Import, MiddleburyKeepsTheDifferenceOfThePrincipalPoints) {
    writePicture(set_ / "im0.png", 1, true);
    writePicture(set_ / "im1.png", 2, true);
    writeText(set_ / "calib.txt",
              "cam0=[ 36 0 20 ; 0 36 10\n; 0 0 1 ] \ncam1=[ 36 0 23; 0 36 10; 0 0 1 ]\n doffs= 3\n"
              " baseline=\n 178 \nwidth= 40\n height=20\n");
    const auto reader = import(openOk());
    EXPECT_EQ(reader->frameCount(), 1);
    EXPECT_TRUE(reader->calibration().rectified);
    EXPECT_EQ(reader->calibration().right.cx - reader->calibration().left.cx, 3);
}

TEST_F(Import, Folders) {
    for (const char* number : {"9", "10", "11"}) {
        writePicture(set_ / ("left" + std::string(number) + ".png"), 1);
        writePicture(set_ / ("right" + std::string(number) + ".png"), 2);
    }
    SequenceOptions options;
    options.fps = 5;
    EXPECT_EQ(openCode(options), ErrorCode::kInvalidArgument);
    const StereoCalibration calibration = test::smallCalibration(kWidth, kHeight);
    writeText(set_ / "calibration.yml", toYaml(calibration));
    const StereoSequence sequence = openOk(options);
    EXPECT_EQ(sequence.layout, DatasetLayout::kFolders);
    ASSERT_EQ(sequence.pairs.size(), 3u);
    EXPECT_EQ(sequence.pairs[0].left.filename(), "left9.png");
    EXPECT_EQ(sequence.calibration.translation_mm[0], -60);
    EXPECT_FALSE(import(sequence)->calibration().rectified);
}

TEST_F(Import, EurocTurnsTheImuAndCutsItToThePictures) {
    // The body's x axis points up, as on that platform: the camera's y is the body's -x.
    const std::string camera =
        "%YAML:1.0\n# a comment\nsensor_type: camera\nT_BS:\n  cols: 4\n  rows: 4\n"
        "  data: [0.0, -1.0, 0.0, 0.0,\n         1.0, 0.0, 0.0, TY,\n"
        "         0.0, 0.0, 1.0, 0.0,\n         0.0, 0.0, 0.0, 1.0]\nrate_hz: 20\n"
        "resolution: [40, 20]\ncamera_model: pinhole\nintrinsics: [36, 36, 20, 10]\n"
        "distortion_model: radial-tangential\ndistortion_coefficients: [-0.28, 0.07, 0.0, 0.0]\n";
    const auto with = [&](const char* ty) {
        std::string text = camera;
        return text.replace(text.find("TY"), 2, ty);
    };
    writeText(set_ / "mav0/cam0/sensor.yaml", with("0.0"));
    writeText(set_ / "mav0/cam1/sensor.yaml", with("0.1"));
    for (const char* t : {"1403715273262142976", "1403715273312143104", "1403715273362142976"}) {
        writePicture(set_ / "mav0/cam0/data" / (std::string(t) + ".png"), 1);
        writePicture(set_ / "mav0/cam1/data" / (std::string(t) + ".png"), 2);
    }
    writeText(set_ / "mav0/imu0/data.csv",
              "#timestamp [ns],w,w,w,a,a,a\n"
              "1403715273257142976,9,9,9,9,9,9\n"
              "1403715273262142976,0.1,0.2,0.3,9.81,0.5,0.25\n"
              "1403715273312143104,0.1,0.2,0.3,9.81,0.5,0.25\r\n"
              "1403715273362142976,0.1,0.2,0.3,9.81,0.5,0.25\n"
              "1403715273362142977,9,9,9,9,9,9\n");
    const StereoSequence sequence = openOk();
    EXPECT_EQ(sequence.layout, DatasetLayout::kEuroc);
    EXPECT_EQ(sequence.fps, 20);
    EXPECT_FALSE(sequence.calibration.rectified);
    EXPECT_NEAR(sequence.calibration.translation_mm[0], -100, 1e-9);
    ASSERT_EQ(sequence.imu.size(), 3u);
    // Level and at rest the camera reads (0, -9.81, 0).
    EXPECT_NEAR(sequence.imu[0].accel[0], 0.5, 1e-6);
    EXPECT_NEAR(sequence.imu[0].accel[1], -9.81, 1e-6);
    EXPECT_NEAR(sequence.imu[0].accel[2], 0.25, 1e-6);
    EXPECT_NEAR(sequence.imu[0].gyro[0], 0.2, 1e-6);
    EXPECT_NEAR(sequence.imu[0].gyro[1], -0.1, 1e-6);
    const auto reader = import(sequence);
    EXPECT_EQ(reader->timeNs(0), 1403715273262142976);
    EXPECT_EQ(reader->imuSampleCount(), 3);
    EXPECT_TRUE(reader->camera().has_imu);
    RawFrame frame;
    ASSERT_TRUE(reader->read(1, frame).ok());
    EXPECT_EQ(frame.imu.size(), 1u);
}

TEST_F(Import, WhatCannotBeImportedSaysWhy) {
    EXPECT_EQ(openCode(), ErrorCode::kCannotOpenFile);
    fs::create_directories(set_);
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    EXPECT_NE(message_.find("no known layout"), std::string::npos);
    SequenceOptions options;
    options.layout = DatasetLayout::kEuroc;
    EXPECT_EQ(openCode(options), ErrorCode::kInvalidFile);
    writePicture(set_ / "image_0/000000.png", 1);
    writePicture(set_ / "image_1/000000.png", 1);
    writeText(set_ / "times.txt", "zero");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    writeText(set_ / "times.txt", "");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    writeText(set_ / "times.txt", "0");
    writeText(set_ / "image_0/000000.png", "not a picture");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
}

TEST_F(Import, PicturesOfAnotherSizeAreLeftOut) {
    writePicture(set_ / "left/1.png", 1);
    writePicture(set_ / "right/1.png", 2);
    writePicture(set_ / "left/2.png", 3, false, kWidth + 1);
    writePicture(set_ / "right/2.png", 4);
    writeText(set_ / "left/3.png", "damaged");
    writePicture(set_ / "right/3.png", 4);
    SequenceOptions options;
    options.fps = 5;
    options.intrinsics = {36, 36, 20, 10, 60};
    EXPECT_EQ(import(openOk(options))->frameCount(), 1);
}

TEST_F(Import, RealStreet) {
    const auto path = test::realData("kitti-odometry-seq1");
    KOVA_NEED_REAL_DATA(path);
    set_ = path;
    SequenceOptions options;
    options.fps = 10;
    const auto reader = import(openOk(options));
    EXPECT_EQ(reader->frameCount(), 51);
    EXPECT_EQ(reader->stream().eyeWidth(), 1226);
    EXPECT_EQ(reader->stream().eyeHeight(), 370);
    EXPECT_TRUE(reader->calibration().rectified);
    EXPECT_NEAR(reader->calibration().left.fx, 707.0912, 1e-6);
    EXPECT_NEAR(reader->calibration().baselineMm(), 537.2, 0.1);
    EXPECT_EQ(reader->timeNs(50) - reader->timeNs(0), 5000000000);
}

TEST_F(Import, RealFlight) {
    const auto path = test::realData("euroc-micro-imu");
    KOVA_NEED_REAL_DATA(path);
    set_ = path;
    const auto reader = import(openOk());
    ASSERT_EQ(reader->frameCount(), 20);
    EXPECT_EQ(reader->stream().nominal_fps, 20);
    EXPECT_FALSE(reader->calibration().rectified);
    EXPECT_NEAR(reader->calibration().baselineMm(), 110, 1);
    // 0.95 s at 200 Hz, both ends counted; the set's table holds 29,120 rows.
    EXPECT_EQ(reader->imuSampleCount(), 191);
    RawFrame frame;
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(reader->read(i, frame).ok());
        for (const ImuSample& s : frame.imu) {
            EXPECT_GT(s.t_ns, i > 0 ? reader->timeNs(i - 1) : reader->timeNs(0) - 1);
            EXPECT_LE(s.t_ns, reader->timeNs(i));
            // Gravity points down in the camera's frame.
            EXPECT_LT(s.accel[1], -6);
            const double force = std::sqrt(s.accel[0] * s.accel[0] + s.accel[1] * s.accel[1] +
                                           s.accel[2] * s.accel[2]);
            EXPECT_NEAR(force, 9.81, 3);
        }
    }
}

TEST_F(Import, RealSinglePairs) {
    const auto root = test::realData("middlebury-v3-trainingQ");
    KOVA_NEED_REAL_DATA(root);
    for (const char* scene :
         {"Adirondack", "Motorcycle", "MotorcycleE", "Piano", "PianoL", "Recycle", "Teddy"}) {
        SCOPED_TRACE(scene);
        set_ = root / scene;
        const auto reader = import(openOk());
        EXPECT_EQ(reader->frameCount(), 1);
        EXPECT_TRUE(reader->calibration().rectified);
        EXPECT_GT(reader->calibration().right.cx, reader->calibration().left.cx);
    }
    set_ = test::realData("eth3d-two-view-gt/playground");
    EXPECT_EQ(import(openOk())->stream().eyeWidth(), 941);
    set_ = test::realData("kitti2015-gt");
    SequenceOptions options;
    options.fps = 1;
    options.intrinsics = {721.5377, 721.5377, 609.5593, 172.854, 532.7};
    EXPECT_EQ(import(openOk(options))->frameCount(), 8);
}

}  // namespace
}  // namespace kova::camera
