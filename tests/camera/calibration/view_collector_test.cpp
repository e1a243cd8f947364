#include "camera/calibration/view_collector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "tests/camera/calibration/board_pictures.h"

namespace kova::camera {
namespace {

using testing::HasSubstr;
using testing::Not;

StereoCalibration smallRig() {
    StereoCalibration c;
    c.width = 480;
    c.height = 360;
    c.left = {380, 380, 240, 180, LensModel::kRadialTangential, {-0.2, 0.05, 0, 0}};
    c.right = c.left;
    c.translation_mm = {-60, 0, 0};
    return c;
}

struct Pictures {
    Image<std::uint8_t> left, right;
    EyeViews views() const { return {left.view(), right.view()}; }
};

class Collector : public testing::Test {
protected:
    Pictures see(double x, double y, double yaw, double pitch, double z = 520) {
        test::BoardPose p;
        cv::Matx33d turn_x, turn_y;
        cv::Rodrigues(cv::Vec3d(pitch, 0, 0), turn_x);
        cv::Rodrigues(cv::Vec3d(0, yaw, 0), turn_y);
        p.rotation = turn_y * turn_x;
        p.translation = cv::Vec3d(x + 30, y, z) - p.rotation * cv::Vec3d(100, 62.5, 0);
        return {stage_.left(p), stage_.right(p)};
    }
    std::string offer(const Pictures& before, const Pictures& now) {
        return collector_.offer("view", before.views(), now.views()).words;
    }

    Board board_;
    test::Stage stage_{board_, smallRig()};
    StereoCalibrator calibrator_{board_};
    ViewCollector collector_{board_, calibrator_};
};

TEST_F(Collector, TakesWhatIsNewSharpAndStill) {
    const Pictures here = see(0, 0, 0, 0), nearby = see(6, 0, 0, 0);
    EXPECT_THAT(offer(nearby, here), HasSubstr("moving"));
    EXPECT_EQ(0, calibrator_.viewCount());
    EXPECT_EQ("the board is in both eyes", offer(here, here));
    EXPECT_EQ(1, calibrator_.viewCount());
    EXPECT_THAT(offer(nearby, nearby), HasSubstr("seen like this"));

    const Pictures tilted = see(0, 0, 0.5, 0);
    Pictures blurred = see(0, 0, 0.5, 0);
    for (Image<std::uint8_t>* eye : {&blurred.left, &blurred.right}) {
        cv::Mat m(eye->height(), eye->width(), CV_8U, eye->data(),
                  static_cast<std::size_t>(eye->stride()));
        cv::GaussianBlur(m, m, {}, 3.2);
    }
    EXPECT_THAT(offer(blurred, blurred), HasSubstr("blurred"));
    EXPECT_EQ("the board is in both eyes", offer(tilted, tilted));
    EXPECT_EQ(2, calibrator_.viewCount());

    Pictures blank = see(0, 0, 0, 0);
    blank.right.fill(90);
    EXPECT_THAT(offer(blank, blank), HasSubstr("left eye only"));
    blank.left.fill(90);
    EXPECT_EQ("no board", offer(here, blank));
}

TEST_F(Collector, SaysWhatIsStillMissing) {
    EXPECT_THAT(collector_.missing(), HasSubstr("15 more views"));
    EXPECT_THAT(collector_.missing(), HasSubstr("nearer with its side: left, right, upper, lower"));
    // The left side comes nearer when the board turns to the right.
    for (const double x : {-15.0, 15.0}) {
        const Pictures p = see(x, 0, -0.45, 0, 500 + x);
        EXPECT_EQ("the board is in both eyes", offer(p, p));
    }
    const std::string one_side = collector_.missing();
    EXPECT_TRUE(one_side.find("side: right, upper, lower") != std::string::npos ||
                one_side.find("side: left, upper, lower") != std::string::npos)
        << one_side;
    const bool left_done = one_side.find("side: right") != std::string::npos;
    const Pictures p = see(0, 0, -0.45, 0);
    // By the picture itself: the nearer side of the board is the taller one.
    const BoardPoints points = findBoard(board_, p.left.view());
    const double left = points.pixels[45][1] - points.pixels[0][1];
    const double right = points.pixels[53][1] - points.pixels[8][1];
    EXPECT_EQ(std::abs(left) > std::abs(right), left_done);
    EXPECT_THAT(one_side, HasSubstr("left eye: top left"));
    const Pictures corner = see(-100, -70, 0, 0);
    EXPECT_EQ("the board is in both eyes", offer(corner, corner));
    EXPECT_THAT(collector_.missing(), Not(HasSubstr("left eye: top left")));
    EXPECT_FALSE(collector_.enough());
}

}  // namespace
}  // namespace kova::camera
