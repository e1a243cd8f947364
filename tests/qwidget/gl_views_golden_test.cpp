#include <gtest/gtest.h>

#include <QtTest>

#include <cmath>
#include <limits>
#include <vector>

#include "qwidget/cpumouseqopenglwidget.h"
#include "qwidget/imucalibrationqopenglwidget.h"
#include "qwidget/imupositionqopenglwidget.h"
#include "qwidget/pointcloudqopenglwidget.h"
#include "tests/support/golden_image.h"

// Pictures of the GL views, drawn in software on a screen of their own.

namespace kova::qwidget {
namespace {

// Lines and points may fall on a neighbouring pixel with another version of the renderer; what is
// asked for is that the picture as a whole is the same.
test::GoldenRule linesMayMove() {
    test::GoldenRule rule;
    rule.tolerance = 8;
    rule.different_percent_max = 1.0;
    rule.difference_max = 255;
    return rule;
}

template <typename View>
class Shown : public View {
public:
    bool open() {
        View::setFixedSize(400, 300);
        View::show();
        return QTest::qWaitForWindowExposed(this) && View::isValid();
    }
    testing::AssertionResult matches(const char* name) {
        return test::matchesGolden(View::grabFramebuffer().convertToFormat(QImage::Format_RGB32),
                                   "glviews", name, linesMayMove());
    }
};

TEST(GlViewsGolden, ImageWithEveryOverlay) {
    Shown<CPUMouseQOpenGLWidget> view;
    ASSERT_TRUE(view.open());
    view.initResource(320, 120, false);
    std::vector<unsigned char> image(320 * 120 * 4, 255);
    for (int i = 0; i < 320 * 120; ++i) {
        image[static_cast<std::size_t>(i) * 4] = static_cast<unsigned char>((i % 320) * 4 / 5);
        image[static_cast<std::size_t>(i) * 4 + 1] = static_cast<unsigned char>((i / 320) * 2);
        image[static_cast<std::size_t>(i) * 4 + 2] = 60;
    }
    view.setImagePointer(image.data());
    EXPECT_TRUE(view.matches("image"));
    view.setDrawGrid(true, 7);
    view.setDrawVerticalLine(true, 9);
    view.setDrawCenter(true, true);
    view.setDrawCross(true);
    view.setPressed({40, 20});
    view.setReleased({250, 100});
    EXPECT_TRUE(view.matches("image_overlays"));
}

TEST(GlViewsGolden, CloudWithTriangle) {
    Shown<PointCloudQOpenGLWidget> view;
    ASSERT_TRUE(view.open());
    view.initResource(160, 100, 4);
    view.setFocalLength(115, 115);
    view.setDepthRange(300, 2500);
    std::vector<float> cloud;
    std::vector<unsigned char> image;
    for (int y = 0; y < 100; ++y) {
        for (int x = 0; x < 160; ++x) {
            const bool invalid = x > 100 && y < 30;
            const float z = invalid ? std::numeric_limits<float>::quiet_NaN()
                                    : 1200 + 300 * std::sin(static_cast<float>(x) * 0.1f);
            cloud.insert(cloud.end(), {(static_cast<float>(x) - 80) * z / 115,
                                       (static_cast<float>(y) - 50) * z / 115, z});
            image.insert(image.end(), {static_cast<unsigned char>(x * 3 / 2),
                                       static_cast<unsigned char>(y * 5 / 2), 128, 255});
        }
    }
    view.setImagePointer(image.data());
    view.setPointCloudPointer(cloud.data());
    view.setTrianglePoint({-300, 100, 1200}, {300, -100, 1000});
    EXPECT_TRUE(view.matches("cloud"));
    // From the side, with the camera's body.
    QTest::mousePress(view.windowHandle(), Qt::LeftButton, {}, {100, 100});
    QTest::mouseMove(view.windowHandle(), {200, 150});
    QTest::mouseRelease(view.windowHandle(), Qt::LeftButton, {}, {200, 150});
    EXPECT_TRUE(view.matches("cloud_side"));
}

TEST(GlViewsGolden, AttitudeOverTheFloor) {
    Shown<IMUPositionQOpenGLWidget> view;
    ASSERT_TRUE(view.open());
    view.makeCurrent();
    view.initResource(400, 300);
    view.set_north_axis(NORTH_AXIS_Y_NEGATIVE);
    float tilted[4] = {0.1830127f, 0.6830127f, 0.1830127f, 0.6830127f};
    view.set_quaternion(tilted);
    EXPECT_TRUE(view.matches("imu_position"));
}

TEST(GlViewsGolden, CollectedSamples) {
    Shown<IMUCalibrationQOpenGLWidget> view;
    ASSERT_TRUE(view.open());
    for (int i = 0; i < 400; ++i) {
        const float a = static_cast<float>(i) * 0.1f;
        const float z = static_cast<float>(i) / 200 - 1;
        const float s = std::sqrt(1 - z * z);
        imu::IMUData data;
        data.accel = {98 * s * std::cos(a), 98 * s * std::sin(a), 98 * z};
        data.magnet = {300 * s * std::cos(a), 300 * s * std::sin(a), 300 * z};
        view.set_imu_data(data);
    }
    EXPECT_TRUE(view.matches("imu_calibration"));
}

}  // namespace
}  // namespace kova::qwidget
