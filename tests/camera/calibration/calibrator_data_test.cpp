// Calibration from real pictures of chessboards.

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <cstdio>
#include <filesystem>

#include "camera/calibration/calibrator.h"
#include "tests/support/test_data.h"

namespace kova::camera {
namespace {

cv::Mat grey(const std::filesystem::path& path) {
    return cv::imread(path.string(), cv::IMREAD_GRAYSCALE);
}

ImageView<const std::uint8_t> view(const cv::Mat& m) {
    return {m.data, m.cols, m.rows, static_cast<std::ptrdiff_t>(m.step)};
}

Status calibrateSet(const std::filesystem::path& folder, const char* pattern, int last,
                    CalibrationReport& report) {
    Board board;  // 9x6
    StereoCalibrator calibrator(board);
    for (int i = 1; i <= last; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, pattern, i);
        if (!std::filesystem::exists(folder / ("left" + std::string(name))))
            continue;
        const cv::Mat left = grey(folder / ("left" + std::string(name)));
        const cv::Mat right = grey(folder / ("right" + std::string(name)));
        calibrator.add(name, view(left), view(right));
    }
    return calibrator.calibrate(report);
}

TEST(CalibratorOnRealData, SamplesAgreeWithTheirIntrinsics) {
    const auto folder = test::realData("opencv-doc-samples");
    KOVA_NEED_REAL_DATA(folder);
    CalibrationReport report;
    const Status status = calibrateSet(folder, "%02d.jpg", 14, report);
    ASSERT_TRUE(status.ok()) << status.message();
    EXPECT_LT(report.stereo_rms_px, 0.5);
    EXPECT_LT(report.epipolar_rms_px, 0.5);
    const CameraIntrinsics& left = report.calibration.left;
    const CameraIntrinsics& right = report.calibration.right;
    for (const CameraIntrinsics* eye : {&left, &right}) {
        EXPECT_NEAR(534.80, eye->fx, 5.35);
        EXPECT_NEAR(534.80, eye->fy, 5.35);
    }
    EXPECT_NEAR(335.69, left.cx, 5);
    EXPECT_NEAR(240.66, left.cy, 5);
    EXPECT_NEAR(334.56, right.cx, 5);
    EXPECT_NEAR(242.05, right.cy, 5);
}

TEST(CalibratorOnRealData, WebcamCalibrates) {
    const auto folder = test::realData("chessboard-stereo-webcam/1");
    KOVA_NEED_REAL_DATA(folder);
    CalibrationReport report;
    const Status status = calibrateSet(folder, "%d.jpg", 40, report);
    ASSERT_TRUE(status.ok()) << status.message();
    EXPECT_LT(report.stereo_rms_px, 0.5);
    EXPECT_LT(report.epipolar_rms_px, 0.5);
}

}  // namespace
}  // namespace kova::camera
