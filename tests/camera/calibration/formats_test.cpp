#include "camera/calibration/formats.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "tests/support/test_data.h"

namespace kova::camera {
namespace {

using testing::HasSubstr;

class Formats : public testing::Test {
protected:
    std::filesystem::path write(const std::string& name, const std::string& text) {
        const auto path = folder_ / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text;
        return path;
    }
    test::TemporaryFolder folder_;
};

std::string rosCamera(double tx, const std::string& p03, const std::string& size = "640") {
    return "image_width: " + size +
           "\nimage_height: 480\ncamera_name: narrow\ncamera_matrix:\n  rows: 3\n  cols: 3\n"
           "  data: [500, 0, 320, 0, 501, 240, 0, 0, 1]\n"
           "distortion_model: plumb_bob\ndistortion_coefficients:\n  rows: 1\n  cols: 5\n"
           "  data: [-0.3, 0.1, 0.001, -0.002, 0]\nrectification_matrix:\n  rows: 3\n  cols: 3\n"
           "  data: [1, 0, 0, 0, 1, 0, 0, 0, 1]\nprojection_matrix:\n  rows: 3\n  cols: 4\n"
           "  data: [480, 0, 310, " +
           (p03.empty() ? std::to_string(480 * tx) : p03) + ", 0, 480, 235, 0, 0, 0, 1, 0]\n";
}

TEST_F(Formats, RosPairGivesTheBaselineInMillimetres) {
    const auto left = write("left.yaml", rosCamera(0, "0"));
    const auto right = write("right.yaml", rosCamera(-0.12, ""));
    const auto c = readCalibration({left, right});
    ASSERT_TRUE(c.ok()) << c.status().message();
    EXPECT_EQ(640, c.value().width);
    EXPECT_FALSE(c.value().rectified);
    EXPECT_NEAR(-120, c.value().translation_mm[0], 1e-6);
    EXPECT_EQ(500, c.value().left.fx);
    EXPECT_EQ(5U, c.value().right.distortion.size());
    // The folder stands for both.
    EXPECT_TRUE(readCalibration(left.parent_path()).ok());
}

TEST_F(Formats, RosMistakesAreSaidInWords) {
    const auto left = write("a.yaml", rosCamera(0, "0"));
    const auto right = write("b.yaml", rosCamera(-0.12, ""));
    EXPECT_THAT(readCalibration({right, left}).status().message(), HasSubstr("swap the files"));
    EXPECT_THAT(readCalibration(left).status().message(), HasSubstr("give two files"));
    EXPECT_THAT(readCalibration({left, left}).status().message(), HasSubstr("no baseline"));
    const auto positive = write("c.yaml", rosCamera(0.12, ""));
    EXPECT_THAT(readCalibration({left, positive}).status().message(),
                HasSubstr("eyes are swapped"));
    const auto millimetres = write("d.yaml", rosCamera(-120, ""));
    EXPECT_THAT(readCalibration({left, millimetres}).status().message(),
                HasSubstr("in millimetres instead of metres"));
    const auto other = write("e.yaml", rosCamera(-0.12, "", "1280"));
    EXPECT_THAT(readCalibration({left, other}).status().message(),
                HasSubstr("different resolutions"));
    ReadCalibrationOptions options;
    options.width = 320;
    options.height = 240;
    EXPECT_THAT(readCalibration({left, right}, options).status().message(),
                HasSubstr("made for pictures of 640x480, these are 320x240"));
}

const char kKittiLabelled[] =
    "P0: 700 0 600 0 0 700 180 0 0 0 1 0\n"
    "P1: 700 0 600 -378 0 700 180 0 0 0 1 0\n"
    "P2: 700 0 600 42 0 700 180 0.2 0 0 1 0.002\n"
    "P3: 700 0 600 -336 0 700 180 2.1 0 0 1 0.003\n";

TEST_F(Formats, KittiNeedsTheSizeAndChoosesThePair) {
    const auto path = write("calib.txt", kKittiLabelled);
    const auto without = readCalibration(path);
    EXPECT_EQ(ErrorCode::kInvalidArgument, without.status().code());
    EXPECT_THAT(without.status().message(), HasSubstr("size of the pictures"));
    ReadCalibrationOptions options;
    options.width = 1241;
    options.height = 376;
    const auto grey = readCalibration(path, options);
    ASSERT_TRUE(grey.ok()) << grey.status().message();
    EXPECT_TRUE(grey.value().rectified);
    EXPECT_NEAR(540, grey.value().baselineMm(), 1e-9);
    options.kitti_colour = true;
    EXPECT_NEAR(540, readCalibration(path, options).value().baselineMm(), 1e-9);
    EXPECT_NEAR(-540, readCalibration(path, options).value().translation_mm[0], 1e-9);
}

TEST_F(Formats, KittiWithSizesAndWithoutLabels) {
    const auto labelled =
        write("calib_cam_to_cam.txt",
              "calib_time: 09-Jan-2012 13:57:47\ncorner_dist: 9.95e-02\n"
              "S_rect_02: 1.242e+03 3.75e+02\nP_rect_02: 721 0 609 44 0 721 172 0.2 0 0 1 0.003\n"
              "S_rect_03: 1.242e+03 3.75e+02\nP_rect_03: 721 0 609 -340 0 721 172 2 0 0 1 0.003\n");
    const auto c = readCalibration(labelled);
    ASSERT_TRUE(c.ok()) << c.status().message();
    EXPECT_EQ(1242, c.value().width);
    EXPECT_NEAR(384.0 / 721 * 1000, c.value().baselineMm(), 1e-9);

    ReadCalibrationOptions options;
    options.width = 1226;
    options.height = 370;
    const auto plain = write("plain.txt",
                             "7.0e+02 0 600 0 0 7.0e+02 180 0 0 0 1 0\n"
                             "7.0e+02 0 600 -3.5e+02 0 7.0e+02 180 0 0 0 1 0");
    const auto d = readCalibration(plain, options);
    ASSERT_TRUE(d.ok()) << d.status().message();
    EXPECT_NEAR(500, d.value().baselineMm(), 1e-9);
    const auto swapped = write("swapped.txt",
                               "7.0e+02 0 600 -350 0 7.0e+02 180 0 0 0 1 0\n"
                               "7.0e+02 0 600 0 0 7.0e+02 180 0 0 0 1 0");
    EXPECT_THAT(readCalibration(swapped, options).status().message(), HasSubstr("swapped"));
}

TEST_F(Formats, MiddleburyIsReadLeniently) {
    const auto path =
        write("calib.txt",
              "cam0=[ 1038.018 0 322.037 ; 0 1038.018\n 243.393 ; 0 0 1 ] \n"
              " cam1 = [1038.018 0 375.308; 0 1038.018 243.393; 0 0 1]\n"
              " doffs= 53.271 \nbaseline= 176.252 width= 718\n height=\n496\nndisp=73");
    const auto c = readCalibration(path);
    ASSERT_TRUE(c.ok()) << c.status().message();
    EXPECT_EQ(718, c.value().width);
    EXPECT_EQ(496, c.value().height);
    EXPECT_NEAR(53.271, c.value().right.cx - c.value().left.cx, 1e-9);
    EXPECT_NEAR(-176.252, c.value().translation_mm[0], 1e-9);
    EXPECT_TRUE(c.value().rectified);
    const auto wrong =
        write("wrong.txt", "cam0=[1 0 3;0 1 2;0 0 1] cam1=[1 0 9;0 1 2;0 0 1] doffs=5 baseline=9");
    EXPECT_THAT(readCalibration(wrong).status().message(), HasSubstr("doffs"));
}

TEST_F(Formats, KalibrTakesCameraZeroToCameraOne) {
    const std::string camera =
        "  camera_model: pinhole\n  distortion_coeffs: [-0.2, 0.05, 0.001, 0.002]\n"
        "  distortion_model: radtan\n  intrinsics: [460.0, 461.0, 376.0, 240.0]\n"
        "  resolution: [752, 480]\n";
    const auto chain = [&](const std::string& tx, const std::string& model) {
        std::string text = "cam0:\n" + camera + "cam1:\n  T_cn_cnm1:\n  - [1.0, 0.0, 0.0, " + tx +
                           "]\n  - [0.0, 1.0, 0.0, 0.001]\n  - [0.0, 0.0, 1.0, 0.0]\n"
                           "  - [0.0, 0.0, 0.0, 1.0]\n" +
                           camera;
        const std::string from = "camera_model: pinhole";
        for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; ++at)
            text.replace(at, from.size(), "camera_model: " + model);
        return text;
    };
    const auto c = readCalibration(write("camchain.yaml", chain("-0.11", "pinhole")));
    ASSERT_TRUE(c.ok()) << c.status().message();
    EXPECT_NEAR(-110, c.value().translation_mm[0], 1e-9);
    EXPECT_NEAR(1, c.value().translation_mm[1], 1e-9);
    EXPECT_THAT(readCalibration(write("s.yaml", chain("0.11", "pinhole"))).status().message(),
                HasSubstr("swapped"));
    EXPECT_THAT(readCalibration(write("o.yaml", chain("-0.11", "omni"))).status().message(),
                HasSubstr("'omni' is not supported"));
}

TEST_F(Formats, OpenCvTakesTheExtrinsicsThatLieBeside) {
    const std::string matrix = " !!opencv-matrix\n   rows: 3\n   cols: 3\n   dt: d\n   data: ";
    const std::string intrinsics = "%YAML:1.0\n---\nM1:" + matrix +
                                   "[ 534., 0., 335., 0., 534., 240., 0., 0., 1. ]\nM2:" + matrix +
                                   "[ 534., 0., 334., 0., 534., 242., 0., 0., 1. ]\n";
    ReadCalibrationOptions options;
    options.width = 640;
    options.height = 480;
    const auto path = write("intrinsics.yml", intrinsics);
    EXPECT_THAT(readCalibration(path, options).status().message(), HasSubstr("extrinsics.yml"));
    const auto extrinsics = [&](const std::string& t) {
        return "%YAML:1.0\n---\nR:" + matrix +
               "[ 1., 0., 0., 0., 1., 0., 0., 0., 1. ]\nT: !!opencv-matrix\n   rows: 3\n   cols: "
               "1\n   dt: d\n   data: [ " +
               t + ", 0., 0. ]\n";
    };
    write("extrinsics.yml", extrinsics("-83.2"));
    const auto c = readCalibration(path, options);
    ASSERT_TRUE(c.ok()) << c.status().message();
    EXPECT_NEAR(83.2, c.value().baselineMm(), 1e-9);
    write("extrinsics.yml", extrinsics("-0.0832"));
    EXPECT_THAT(readCalibration(path, options).status().message(), HasSubstr("metres"));
    options.mm_per_unit = 1000;
    EXPECT_NEAR(83.2, readCalibration(path, options).value().baselineMm(), 1e-9);
}

TEST_F(Formats, OwnYamlRoundTrips) {
    StereoCalibration c;
    c.width = 640;
    c.height = 400;
    c.left = {400.5, 401.25, 320, 200, LensModel::kEquidistant, {0.1, -0.02, 0.003, 1e-5}};
    c.right = c.left;
    c.translation_mm = {-63.5, 0.25, -0.125};
    const auto d = readCalibration(write("camera.yml", toYaml(c)));
    ASSERT_TRUE(d.ok()) << d.status().message();
    EXPECT_EQ(c.left.distortion, d.value().left.distortion);
    EXPECT_EQ(c.translation_mm, d.value().translation_mm);
    EXPECT_EQ(LensModel::kEquidistant, d.value().right.lens);
}

TEST_F(Formats, WhatIsNoCalibrationIsRefused) {
    EXPECT_EQ(ErrorCode::kCannotOpenFile, readCalibration(folder_ / "none.yml").status().code());
    EXPECT_EQ(ErrorCode::kCannotOpenFile, readCalibration(folder_.path()).status().code());
    for (const char* text : {"", "hello", "%YAML:1.0\nM1: !!opencv-matrix\n  rows: 9999999\n",
                             "T_BS: [1, 2", "cam0: x\ncamera_model: [", "P0: 1 2\nP1: 3",
                             "cam0=[;;;] baseline=nan", "1 2 3", "\x01\x02\xff"}) {
        const auto c = readCalibration(write("x.txt", text));
        EXPECT_FALSE(c.ok()) << text;
        EXPECT_THAT(c.status().message(), HasSubstr("x.txt")) << text;
    }
}

TEST(FormatsOfRealData, AllSetsAreRead) {
    const auto euroc = test::realData("euroc-micro-imu");
    KOVA_NEED_REAL_DATA(euroc);
    const auto c = readCalibration(euroc);
    ASSERT_TRUE(c.ok()) << c.status().message();
    EXPECT_NEAR(110.1, c.value().baselineMm(), 0.1);
    EXPECT_LT(c.value().translation_mm[0], -109);
    EXPECT_EQ(752, c.value().width);

    ReadCalibrationOptions options;
    options.width = 1226;
    options.height = 370;
    const auto street = readCalibration(test::realData("kitti-odometry-seq1/calib.txt"), options);
    ASSERT_TRUE(street.ok()) << street.status().message();
    EXPECT_NEAR(537.15, street.value().baselineMm(), 0.05);

    for (const char* scene :
         {"Adirondack", "Motorcycle", "MotorcycleE", "Piano", "PianoL", "Recycle", "Teddy"}) {
        const auto m = readCalibration(
            test::realData(std::string("middlebury-v3-trainingQ/") + scene + "/calib.txt"));
        EXPECT_TRUE(m.ok()) << m.status().message();
        EXPECT_GT(m.value().right.cx, m.value().left.cx);
    }
    const auto eth = readCalibration(test::realData("eth3d-two-view-gt/playground/calib.txt"));
    ASSERT_TRUE(eth.ok()) << eth.status().message();
    EXPECT_NEAR(59.5549, eth.value().baselineMm(), 1e-6);

    options.width = 640;
    options.height = 480;
    const auto intrinsics =
        readCalibration(test::realData("opencv-doc-samples/intrinsics.yml"), options);
    EXPECT_THAT(intrinsics.status().message(), HasSubstr("intrinsics only"));
}

}  // namespace
}  // namespace kova::camera
