// The epipolar check on real pictures.

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <filesystem>

#include "camera/calibration/epipolar.h"
#include "camera/calibration/formats.h"
#include "camera/rectification/rectifier.h"
#include "tests/support/test_data.h"

namespace kova::camera {
namespace {

cv::Mat grey(const std::filesystem::path& path) {
    return cv::imread(path.string(), cv::IMREAD_GRAYSCALE);
}

ImageView<const std::uint8_t> view(const cv::Mat& m) {
    return {m.data, m.cols, m.rows, static_cast<std::ptrdiff_t>(m.step)};
}

TEST(EpipolarOnRealData, RectifiedFlightFits) {
    const auto folder = test::realData("euroc-micro-imu");
    KOVA_NEED_REAL_DATA(folder);
    const auto calibration = readCalibration(folder);
    ASSERT_TRUE(calibration.ok()) << calibration.status().message();
    Status status;
    const auto rectifier = Rectifier::make(calibration.value(), status);
    ASSERT_TRUE(rectifier) << status.message();
    EpipolarCheck rectified, raw, swapped;
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder / "cam0" / "data")) {
        const cv::Mat left = grey(entry.path());
        const cv::Mat right = grey(folder / "cam1" / "data" / entry.path().filename());
        ASSERT_FALSE(left.empty() || right.empty());
        Image<std::uint8_t> left_out, right_out;
        rectifier->rectify(view(left), view(right), left_out, right_out);
        rectified.add(left_out.view(), right_out.view());
        if (count++ % 5 == 0) {
            raw.add(view(left), view(right));
            swapped.add(right_out.view(), left_out.view());
        }
    }
    EXPECT_EQ(20, count);
    const EpipolarReport report = rectified.report();
    EXPECT_EQ(EpipolarVerdict::kFits, report.verdict) << report.words;
    EXPECT_LT(report.median_abs_dy_px, 0.5);
    EXPECT_EQ(EpipolarVerdict::kMisfit, raw.report().verdict);
    EXPECT_EQ(EpipolarVerdict::kSwapped, swapped.report().verdict);
}

}  // namespace
}  // namespace kova::camera
