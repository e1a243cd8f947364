#include "qwidget/imucalibrationqopenglwidget.h"

#include <gtest/gtest.h>

#include "tests/qwidget/expected_calls.h"

namespace kova::qwidget {
namespace {

using test::append;
using test::CallLog;
using test::Calls;
using test::callText;
using test::cameraCalls;
using test::clearCalls;
using test::sameCalls;
using Point = Size3_<float>;

class View : public IMUCalibrationQOpenGLWidget {
public:
    using IMUCalibrationQOpenGLWidget::accel_correction;
    using IMUCalibrationQOpenGLWidget::accel_points;
    using IMUCalibrationQOpenGLWidget::accel_points_calibrated;
    using IMUCalibrationQOpenGLWidget::initializeGL;
    using IMUCalibrationQOpenGLWidget::magnet_correction;
    using IMUCalibrationQOpenGLWidget::magnet_points;
    using IMUCalibrationQOpenGLWidget::magnet_points_calibrated;
    using IMUCalibrationQOpenGLWidget::paintGL;
    using IMUCalibrationQOpenGLWidget::resizeGL;
    using IMUCalibrationQOpenGLWidget::show_accel;
    using IMUCalibrationQOpenGLWidget::show_accel_calibrated;
    using IMUCalibrationQOpenGLWidget::show_magnet;
    using IMUCalibrationQOpenGLWidget::show_magnet_calibrated;
};

class IMUCalibrationView : public testing::Test {
protected:
    IMUCalibrationView() {
        test::resetGlDouble();
        view.resize(640, 480);
    }
    static Calls take() { return CallLog::instance().take(); }
    Calls paint() {
        take();
        view.paintGL();
        return take();
    }
    void offer(const Point& accel, const Point& gyro, const Point& magnet) {
        imu::IMUData data;
        data.accel = accel;
        data.gyro = gyro;
        data.magnet = magnet;
        view.set_imu_data(data);
    }

    View view;
};

constexpr Point kNone{0, 0, 0};

TEST_F(IMUCalibrationView, StartsEmptyAndShowsTheRawLists) {
    EXPECT_TRUE(view.accel_points.empty() && view.accel_points_calibrated.empty());
    EXPECT_TRUE(view.magnet_points.empty() && view.magnet_points_calibrated.empty());
    EXPECT_TRUE(view.show_accel && view.show_magnet);
    EXPECT_FALSE(view.show_accel_calibrated || view.show_magnet_calibrated);
    EXPECT_EQ(view.focusPolicy(), Qt::StrongFocus);
    const std::array<float, 12> nothing{0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    EXPECT_EQ(view.accel_correction, nothing);
    EXPECT_EQ(view.magnet_correction, nothing);
}

TEST_F(IMUCalibrationView, ZeroAccelerationAddsNothingButItsMagneticVectorCounts) {
    offer(kNone, kNone, {30, 0, 0});
    EXPECT_TRUE(view.accel_points.empty());
    ASSERT_EQ(view.magnet_points.size(), 1u);
    EXPECT_EQ(view.magnet_points[0].x, 30);
    offer({0, -9.8f, 0}, kNone, kNone);
    EXPECT_EQ(view.accel_points.size(), 1u);
    EXPECT_EQ(view.magnet_points.size(), 1u);
}

TEST_F(IMUCalibrationView, FirstAccelerationIsTakenWhateverTheRate) {
    offer({0, -9.8f, 0}, {50, 50, 50}, kNone);
    EXPECT_EQ(view.accel_points.size(), 1u);
}

TEST_F(IMUCalibrationView, AccelerationIsDroppedAt01AndTakenAt02FromTheLastPoint) {
    offer({0, 0, 9}, kNone, kNone);
    offer({0.1f, 0, 9}, kNone, kNone);
    EXPECT_EQ(view.accel_points.size(), 1u);
    offer({0.2f, 0, 9}, kNone, kNone);
    ASSERT_EQ(view.accel_points.size(), 2u);
    EXPECT_EQ(view.accel_points[1].x, 0.2f);
    // The distance counts from the last point taken.
    offer({0.1f, 0, 9}, kNone, kNone);
    EXPECT_EQ(view.accel_points.size(), 2u);
}

TEST_F(IMUCalibrationView, AccelerationIsDroppedWhileTurningFast) {
    offer({0, 0, 9}, kNone, kNone);
    const Point fast[] = {{1.41f, 0, 0}, {0, 1.41f, 0}, {0, 0, 1.41f}, {-1.41f, 0, 0}, {0, 0, -5}};
    for (const Point& rate : fast) {
        offer({5, 0, 9}, rate, kNone);
        EXPECT_EQ(view.accel_points.size(), 1u);
    }
    offer({5, 0, 9}, {1.39f, -1.39f, 1.39f}, kNone);
    EXPECT_EQ(view.accel_points.size(), 2u);
}

TEST_F(IMUCalibrationView, MagneticSampleIsDroppedAt3AndTakenAt4FromTheLast) {
    offer(kNone, kNone, {30, 0, 0});
    offer(kNone, kNone, {33, 0, 0});
    EXPECT_EQ(view.magnet_points.size(), 1u);
    // Fast turning is no reason to drop a magnetic sample.
    offer(kNone, {9, 9, 9}, {34, 0, 0});
    EXPECT_EQ(view.magnet_points.size(), 2u);
}

TEST_F(IMUCalibrationView, CorrectionIsTheMatrixTimesThePointLessTheOffset) {
    view.accel_correction = {1, 2, 3, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    view.magnet_correction = {10, 0, 0, 2, 0, 0, 0, 2, 0, 0, 0, 2};
    view.accel_points_calibrated = {{9, 9, 9}};
    view.update_calculated_points({{2, 4, 6}, {1, 2, 3}}, {{11, 1, 2}});
    ASSERT_EQ(view.accel_points_calibrated.size(), 2u);
    EXPECT_EQ(view.accel_points_calibrated[0].x, 1 * 1 + 2 * 2 + 3 * 3);
    EXPECT_EQ(view.accel_points_calibrated[0].y, 4 * 1 + 5 * 2 + 6 * 3);
    EXPECT_EQ(view.accel_points_calibrated[0].z, 7 * 1 + 8 * 2 + 9 * 3);
    EXPECT_EQ(view.accel_points_calibrated[1].x, 0);
    ASSERT_EQ(view.magnet_points_calibrated.size(), 1u);
    EXPECT_EQ(view.magnet_points_calibrated[0].x, 2);
    EXPECT_EQ(view.magnet_points_calibrated[0].y, 2);
    EXPECT_EQ(view.magnet_points_calibrated[0].z, 4);
    EXPECT_TRUE(view.accel_points.empty()) << "the raw lists are not touched";
}

TEST_F(IMUCalibrationView, ClearEmptiesAllListsAndKeepsTheirCapacity) {
    offer({0, 0, 9}, kNone, {30, 0, 0});
    view.update_calculated_points(view.accel_points, view.magnet_points);
    const std::size_t capacity = view.accel_points.capacity();
    view.clear_points();
    EXPECT_TRUE(view.accel_points.empty() && view.accel_points_calibrated.empty());
    EXPECT_TRUE(view.magnet_points.empty() && view.magnet_points_calibrated.empty());
    EXPECT_EQ(view.accel_points.capacity(), capacity);
}

Calls pointCalls(const Point& colour, const std::vector<Point>& points) {
    Calls calls{"glPointSize(3)", callText("glBegin", GL_POINTS), test::colourCall(colour)};
    for (const Point& p : points) calls.push_back(callText("glVertex3f", p.x, p.y, p.z));
    calls.push_back("glEnd()");
    return calls;
}

Calls sceneCalls(int width = 640, int height = 480) {
    Calls calls = clearCalls();
    append(calls, cameraCalls(1000, width, height));
    append(calls, test::axesCalls());
    return calls;
}

TEST_F(IMUCalibrationView, InitializeCreatesTheCamera) {
    view.initializeGL();
    EXPECT_TRUE(sameCalls(take(), {callText("glEnable", GL_DEPTH_TEST)}));
    Calls expected = sceneCalls();
    append(expected, pointCalls({1, 1, 0}, {}));
    append(expected, pointCalls({1, 1, 1}, {}));
    EXPECT_TRUE(sameCalls(paint(), expected));
}

TEST_F(IMUCalibrationView, PaintsEachListInItsColour) {
    view.initializeGL();
    view.accel_points = {{1, 0, 0}};
    view.accel_points_calibrated = {{2, 0, 0}, {2, 1, 0}};
    view.magnet_points = {{3, 0, 0}};
    view.magnet_points_calibrated = {{4, 0, 0}};
    view.show_accel_calibrated = true;
    view.show_magnet_calibrated = true;
    Calls expected = sceneCalls();
    append(expected, pointCalls({1, 1, 0}, view.accel_points));
    append(expected, pointCalls({1, 1, 1}, view.magnet_points));
    append(expected, pointCalls({1, 0, 1}, view.accel_points_calibrated));
    append(expected, pointCalls({1, 0, 0}, view.magnet_points_calibrated));
    EXPECT_TRUE(sameCalls(paint(), expected));

    view.show_accel = view.show_magnet = false;
    view.show_accel_calibrated = view.show_magnet_calibrated = false;
    EXPECT_TRUE(sameCalls(paint(), sceneCalls()));
}

TEST_F(IMUCalibrationView, ResizeFitsTheProjection) {
    view.initializeGL();
    view.show_accel = view.show_magnet = false;
    view.resizeGL(900, 300);
    EXPECT_TRUE(sameCalls(paint(), sceneCalls(900, 300)));
}

}  // namespace
}  // namespace kova::qwidget
