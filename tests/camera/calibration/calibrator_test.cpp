#include "camera/calibration/calibrator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "camera/calibration/lens.h"
#include "tests/camera/calibration/board_pictures.h"

namespace kova::camera {
namespace {

using test::BoardPose;
using test::poses;
using test::Stage;
using testing::HasSubstr;

constexpr double kDistance = 480;  // of the board [mm]

StereoCalibration truth() {
    StereoCalibration c;
    c.width = 480;
    c.height = 360;
    c.left = {380, 382, 243, 177, LensModel::kRadialTangential, {-0.2, 0.05, 5e-4, -3e-4}};
    c.right = {386, 383, 236, 182, LensModel::kRadialTangential, {-0.21, 0.06, -4e-4, 2e-4}};
    cv::Matx33d r;
    cv::Rodrigues(cv::Vec3d(0.01, -0.02, 0.005), r);
    for (int i = 0; i < 9; ++i) c.right_from_left[i] = r.val[i];
    c.translation_mm = {-80, 1, -1.5};
    return c;
}

/// Shows the board in all poses to a camera and calibrates it.
Status calibrateOn(const Board& board, const StereoCalibration& camera,
                   StereoCalibrator& calibrator, CalibrationReport& report, int views = 12) {
    Stage stage(board, camera);
    int i = 0;
    for (const BoardPose& p : poses(board, kDistance))
        if (i < views)
            calibrator.add("view " + std::to_string(i++), stage.left(p).view(),
                           stage.right(p).view());
    return calibrator.calibrate(report);
}

void expectTruth(const StereoCalibration& expected, const CalibrationReport& report) {
    const StereoCalibration& c = report.calibration;
    EXPECT_NEAR(expected.baselineMm(), c.baselineMm(), 0.005 * expected.baselineMm());
    EXPECT_NEAR(expected.left.fx, c.left.fx, 0.005 * expected.left.fx);
    EXPECT_NEAR(expected.left.fy, c.left.fy, 0.005 * expected.left.fy);
    EXPECT_NEAR(expected.right.fx, c.right.fx, 0.005 * expected.right.fx);
    EXPECT_NEAR(expected.left.cx, c.left.cx, 2.5);
    EXPECT_NEAR(expected.left.cy, c.left.cy, 2.5);
    EXPECT_LT(report.stereo_rms_px, 0.25);
    EXPECT_LT(report.epipolar_rms_px, 0.25);
}

TEST(StereoCalibrator, RecoversACameraFromAChessboard) {
    const Board board;
    StereoCalibrator calibrator(board);
    CalibrationReport report;
    const Status status = calibrateOn(board, truth(), calibrator, report);
    ASSERT_TRUE(status.ok()) << status.message();
    EXPECT_GE(calibrator.viewCount(), 10);
    expectTruth(truth(), report);
    // The distortion itself, where it matters: a quarter of the width off the axis.
    EXPECT_EQ(LensFreedom::kFree, report.lenses) << "the eyes' focal lengths differ by 1.6 %";
    EXPECT_NEAR(-0.2, report.calibration.left.distortion[0], 0.02);
}

TEST(StereoCalibrator, RecoversACameraFromACharucoBoard) {
    Board board;
    board.kind = BoardKind::kCharuco;
    board.columns = 7;
    board.rows = 5;
    board.square_mm = 45;
    StereoCalibrator calibrator(board);
    CalibrationReport report;
    const Status status = calibrateOn(board, truth(), calibrator, report);
    ASSERT_TRUE(status.ok()) << status.message();
    expectTruth(truth(), report);
}

TEST(StereoCalibrator, RecoversACameraFromAsymmetricCircles) {
    Board board;
    board.kind = BoardKind::kAsymmetricCircles;
    board.columns = 4;
    board.rows = 11;
    board.square_mm = 20;
    StereoCalibrator calibrator(board);
    CalibrationReport report;
    const Status status = calibrateOn(board, truth(), calibrator, report);
    ASSERT_TRUE(status.ok()) << status.message();
    expectTruth(truth(), report);
}

TEST(StereoCalibrator, RecoversAFisheyeAndFindsOutThatItIsOne) {
    const Board board;
    StereoCalibration wide = truth();
    wide.left = {220, 221, 243, 177, LensModel::kEquidistant, {-0.02, 0.004, -0.002, 0.0005}};
    wide.right = {222, 220, 236, 182, LensModel::kEquidistant, {-0.021, 0.003, -0.001, 0}};
    Stage stage(board, wide);
    StereoCalibrator calibrator(board);
    int i = 0;
    for (const BoardPose& p : test::posesAround(board, 240))
        calibrator.add(std::to_string(i++), stage.left(p).view(), stage.right(p).view());
    CalibrationReport report;
    const Status status = calibrator.calibrate(report);
    ASSERT_TRUE(status.ok()) << status.message();
    EXPECT_GE(calibrator.viewCount(), 12);
    EXPECT_EQ(LensFreedom::kFisheye, report.lenses);
    expectTruth(wide, report);
    EXPECT_EQ(LensModel::kEquidistant, report.calibration.left.lens);
    for (const std::array<double, 3>& ray :
         {std::array<double, 3>{1, 0.2, 1}, {-1.2, 0, 1}, {0, 0.8, 1}, {1.2, -0.8, 1}}) {
        const ImagePoint p = projectRay(wide.left, ray);
        const ImagePoint q = projectRay(report.calibration.left, ray);
        EXPECT_NEAR(p.x, q.x, 1);
        EXPECT_NEAR(p.y, q.y, 1);
    }
}

TEST(StereoCalibrator, RefusesSwappedEyesInWords) {
    const Board board;
    StereoCalibration swapped = truth();
    swapped.translation_mm[0] = 80;
    CalibratorOptions options;
    options.freedom = LensFreedom::kFree;
    StereoCalibrator calibrator(board, options);
    CalibrationReport report;
    const Status status = calibrateOn(board, swapped, calibrator, report, 7);
    EXPECT_EQ(ErrorCode::kCalibrationMisfit, status.code());
    EXPECT_THAT(status.message(), HasSubstr("swapped"));
}

TEST(StereoCalibrator, LeavesOutAViewWhoseEyesSawDifferentMoments) {
    const Board board;
    Stage stage(board, truth());
    CalibratorOptions options;
    options.freedom = LensFreedom::kFree;
    StereoCalibrator calibrator(board, options);
    int i = 0;
    for (const BoardPose& p : poses(board, kDistance)) {
        BoardPose later = p;
        if (i == 4)
            later.translation += cv::Vec3d(6, 5, 0);
        calibrator.add(std::to_string(i++), stage.left(p).view(), stage.right(later).view());
    }
    CalibrationReport report;
    const Status status = calibrator.calibrate(report);
    ASSERT_TRUE(status.ok()) << status.message();
    for (const ViewError& view : report.views) EXPECT_EQ(view.name == "4", view.rejected);
    expectTruth(truth(), report);
}

TEST(StereoCalibrator, SaysWhatItSees) {
    const Board board;
    StereoCalibrator calibrator(board);
    Image<std::uint8_t> blank(480, 360), other(320, 240);
    blank.fill(90);
    EXPECT_EQ("no board", calibrator.add("a", blank.view(), blank.view()).words);
    EXPECT_THAT(calibrator.add("b", other.view(), other.view()).words,
                HasSubstr("has 320x240, the first pair 480x360"));
    EXPECT_THAT(calibrator.add("c", blank.view(), other.view()).words, HasSubstr("differ in size"));

    const Image<std::uint8_t> seen = Stage(board, truth()).left(poses(board, kDistance)[0]);
    EXPECT_THAT(calibrator.add("d", seen.view(), blank.view()).words, HasSubstr("left eye only"));
    EXPECT_TRUE(calibrator.add("e", seen.view(), seen.view()).used);
    EXPECT_THAT(calibrator.add("f", seen.view(), seen.view()).words, HasSubstr("stands as in e"));
    EXPECT_EQ(1, calibrator.viewCount());
    EXPECT_THAT(calibrator.coverage().missing(), HasSubstr("left"));

    CalibrationReport report;
    const Status status = calibrator.calibrate(report);
    EXPECT_EQ(ErrorCode::kInvalidArgument, status.code());
    EXPECT_THAT(status.message(), HasSubstr("in 1 pairs, 6 are needed"));
}

TEST(StereoCalibrator, RefusesViewsThatOnlyFillOneCorner) {
    const Board board;
    Stage stage(board, truth());
    StereoCalibrator calibrator(board);
    for (int i = 0; i < 7; ++i) {
        BoardPose p;
        cv::Rodrigues(cv::Vec3d(0.1 * std::sin(i), 0.1 * std::cos(i), 0), p.rotation);
        p.translation = {-250.0 + 10 * i, -220.0 + 5 * i, 700};
        calibrator.add(std::to_string(i), stage.left(p).view(), stage.right(p).view());
    }
    ASSERT_GE(calibrator.viewCount(), 6);
    CalibrationReport report;
    const Status status = calibrator.calibrate(report);
    EXPECT_EQ(ErrorCode::kCalibrationMisfit, status.code());
    EXPECT_LT(report.coverage.share(), 0.5);
    EXPECT_THAT(report.coverage.missing(), HasSubstr("bottom right"));
}

TEST(StereoCalibrator, DepthErrorGrowsWithTheSquareOfTheDistance) {
    const StereoCalibration c = truth();
    const double close = expectedDepthErrorMm(c, 0, 1000);
    EXPECT_NEAR(1e6 / (380 * c.baselineMm()) * 0.25, close, 1e-9);
    EXPECT_NEAR(25 * close, expectedDepthErrorMm(c, 0, 5000), 1e-9);
    EXPECT_GT(expectedDepthErrorMm(c, 0.3, 1000), close);
}

TEST(Board, ImpossibleOnesAreRefusedInWords) {
    Board board;
    board.columns = 2;
    EXPECT_THAT(board.check().message(), HasSubstr("3 to 100"));
    board = {};
    board.square_mm = 0;
    EXPECT_THAT(board.check().message(), HasSubstr("size of a square"));
    board = {};
    board.kind = BoardKind::kCharuco;
    board.dictionary = "9X9";
    EXPECT_THAT(board.check().message(), HasSubstr("'9X9'"));
}

}  // namespace
}  // namespace kova::camera
