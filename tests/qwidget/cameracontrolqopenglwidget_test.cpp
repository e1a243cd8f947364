#include "qwidget/cameracontrolqopenglwidget.h"

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <gtest/gtest.h>

#include <QSignalSpy>

#include <cmath>
#include <sstream>

#include "tests/qwidget/expected_calls.h"
#include "tests/qwidget/mouse_events.h"

namespace kova::qwidget {
namespace {

using test::CallLog;
using test::cameraCalls;
using test::move;
using test::press;
using test::sameCalls;
using test::wheel;

class View : public CameraControlQOpenGLWidget {
public:
    using CameraControlQOpenGLWidget::paintGL;
    using CameraControlQOpenGLWidget::resizeGL;
};

class CameraControl : public testing::Test {
protected:
    CameraControl() {
        test::resetGlDouble();
        view.resize(640, 480);
    }
    void init() { view.initCameraControl({0, 0, 0}, {0, 0, -1}, {0, 0, 1000}); }
    static test::Calls take() { return CallLog::instance().take(); }

    // The matrix that the widget loads, as call number `index` of updateCamera().
    Eigen::Matrix4f loaded(std::size_t index) {
        take();
        view.updateCamera();
        const test::Calls calls = take();
        Eigen::Matrix4f matrix = Eigen::Matrix4f::Zero();
        if (calls.size() != 6) {
            ADD_FAILURE() << "no camera";
            return matrix;
        }
        std::string text = calls[index];
        for (char& c : text)
            if (std::strchr("()[]", c))
                c = ' ';
        std::istringstream in(text);
        std::string name;
        in >> name;
        for (int i = 0; i < 16; ++i) in >> matrix.data()[i];
        EXPECT_FALSE(in.fail()) << text;
        return matrix;
    }
    Eigen::Matrix4f projection() { return loaded(2); }
    Eigen::Matrix4f viewMatrix() { return loaded(5); }
    float eyeDistance() { return -viewMatrix()(2, 3); }

    View view;
};

TEST_F(CameraControl, StartsWithTheDefaultGainsAndStrongFocus) {
    EXPECT_EQ(view.focusPolicy(), Qt::StrongFocus);
    EXPECT_EQ(view.getRotationGain(), 0.01f);
    EXPECT_EQ(view.getTranslationGain(), 1.25f);
    EXPECT_EQ(view.getZoomGain(), 0.15f);
    view.setRotationGain(1);
    view.setTranslationGain(2);
    view.setZoomGain(3);
    EXPECT_EQ(view.getRotationGain(), 1);
    EXPECT_EQ(view.getTranslationGain(), 2);
    EXPECT_EQ(view.getZoomGain(), 3);
}

TEST_F(CameraControl, WithoutACameraNothingIsDrawn) {
    view.paintGL();
    view.updateCamera();
    view.resizeGL(100, 100);
    wheel(view, {0, 120});
    view.uninitCameraControl();
    EXPECT_TRUE(take().empty());
}

TEST_F(CameraControl, MoveWithoutACameraKeepsTheLastPositionAndAPressRecordsItAlways) {
    QSignalSpy pressed(&view, &CameraControlQOpenGLWidget::mouse_pressed);
    press(view, {100, 100}, Qt::LeftButton);
    EXPECT_EQ(pressed.count(), 1);
    move(view, {300, 300}, Qt::LeftButton);
    init();
    // Were the move recorded, this one would be by (-190, -200).
    move(view, {110, 100}, Qt::LeftButton);
    const Eigen::Matrix4f matrix = viewMatrix();
    EXPECT_NEAR(matrix(0, 0), std::cos(0.1), 1e-6);
    EXPECT_NEAR(std::fabs(matrix(0, 2)), std::sin(0.1), 1e-6);
    EXPECT_NEAR(matrix(1, 1), 1, 1e-6);
}

TEST_F(CameraControl, EveryButtonEmitsMousePressed) {
    QSignalSpy pressed(&view, &CameraControlQOpenGLWidget::mouse_pressed);
    for (const Qt::MouseButton button : {Qt::LeftButton, Qt::RightButton, Qt::MiddleButton})
        press(view, {1, 1}, button);
    EXPECT_EQ(pressed.count(), 3);
}

TEST_F(CameraControl, InitOn640x480GivesAVerticalFieldOfViewOf45Degrees) {
    init();
    EXPECT_FLOAT_EQ(projection()(0, 0), 1.7320509f);
    EXPECT_FLOAT_EQ(projection()(1, 1), static_cast<float>(1 / std::tan(22.5 * M_PI / 180)));
    take();
    view.paintGL();
    EXPECT_TRUE(sameCalls(take(), cameraCalls(1000, 640, 480)));
    view.updateCamera();
    EXPECT_TRUE(sameCalls(take(), cameraCalls(1000, 640, 480)));
}

TEST_F(CameraControl, ResizeScalesTheVerticalFieldOfViewInDegrees) {
    init();
    view.resizeGL(800, 200);
    EXPECT_FLOAT_EQ(projection()(0, 0), 1.7320509f);
    EXPECT_FLOAT_EQ(projection()(1, 1), static_cast<float>(1 / std::tan(7.5 * M_PI / 180)));
    EXPECT_TRUE(sameCalls((view.paintGL(), take()), cameraCalls(1000, 800, 200)));
}

TEST_F(CameraControl, UninitTakesTheCameraAway) {
    init();
    view.uninitCameraControl();
    view.paintGL();
    EXPECT_TRUE(take().empty());
}

TEST_F(CameraControl, InitAgainStartsOver) {
    init();
    wheel(view, {0, 120});
    press(view, {0, 0}, Qt::LeftButton);
    move(view, {50, 50}, Qt::LeftButton);
    init();
    EXPECT_TRUE(sameCalls((view.paintGL(), take()), cameraCalls(1000, 640, 480)));
}

TEST_F(CameraControl, LeftDragTurns) {
    init();
    press(view, {100, 100}, Qt::LeftButton);
    move(view, {110, 100}, Qt::LeftButton);
    Eigen::Matrix4f expected = Eigen::Matrix4f::Identity();
    expected.topLeftCorner<3, 3>() =
        Eigen::AngleAxisf(0.1f, Eigen::Vector3f::UnitY()).toRotationMatrix();
    expected(2, 3) = -1000;
    EXPECT_LE((viewMatrix() - expected).norm(), 1e-3) << viewMatrix();
    move(view, {110, 120}, Qt::LeftButton);
    EXPECT_NEAR(viewMatrix()(1, 1), std::cos(0.2), 1e-5);
}

TEST_F(CameraControl, RightDragPansByTheZoomedGain) {
    init();
    press(view, {100, 100}, Qt::RightButton);
    move(view, {102, 104}, Qt::RightButton);
    // The pivot moves to (-2.5, 5, 0), so the scene moves the other way.
    EXPECT_FLOAT_EQ(viewMatrix()(0, 3), 2.5f);
    EXPECT_FLOAT_EQ(viewMatrix()(1, 3), -5);
    wheel(view, {0, -120});
    move(view, {103, 104}, Qt::RightButton);
    EXPECT_FLOAT_EQ(viewMatrix()(0, 3), 2.5f + 1.25f * 1.15f);
}

TEST_F(CameraControl, LeftAndRightTogetherTurnAndDoNotPan) {
    init();
    press(view, {100, 100}, Qt::LeftButton, Qt::RightButton);
    move(view, {110, 100}, Qt::LeftButton | Qt::RightButton);
    const Eigen::Matrix4f matrix = viewMatrix();
    EXPECT_NEAR(matrix(0, 0), std::cos(0.1), 1e-6);
    EXPECT_NEAR(matrix(0, 3), 0, 1e-3);
    EXPECT_NEAR(matrix(1, 3), 0, 1e-3);
    EXPECT_NEAR(matrix(2, 3), -1000, 1e-3);
}

TEST_F(CameraControl, MiddleButtonDoesNothing) {
    init();
    const Eigen::Matrix4f before = viewMatrix();
    press(view, {100, 100}, Qt::MiddleButton);
    move(view, {150, 150}, Qt::MiddleButton);
    EXPECT_EQ(viewMatrix(), before);
}

TEST_F(CameraControl, MoveWithoutAButtonRecordsThePosition) {
    init();
    view.setMouseTracking(true);  // else Qt does not deliver such moves
    press(view, {0, 0}, Qt::LeftButton);
    move(view, {100, 100}, Qt::NoButton);
    EXPECT_NEAR(viewMatrix()(0, 0), 1, 1e-6);
    move(view, {110, 100}, Qt::LeftButton);
    EXPECT_NEAR(viewMatrix()(0, 0), std::cos(0.1), 1e-6);
}

TEST_F(CameraControl, PositionsAreRoundedToWholePixels) {
    init();
    press(view, {99.6, 100.4}, Qt::LeftButton);
    move(view, {110.4, 99.5}, Qt::LeftButton);
    EXPECT_NEAR(viewMatrix()(0, 0), std::cos(0.1), 1e-6);
    EXPECT_NEAR(viewMatrix()(1, 1), 1, 1e-6);
}

TEST_F(CameraControl, WheelTowardsTheUserMovesTheEyeAway) {
    init();
    wheel(view, {0, -120});
    EXPECT_FLOAT_EQ(eyeDistance(), 1000 * 1.15f);
    // One step for each event, whatever its delta.
    wheel(view, {0, -1200});
    EXPECT_FLOAT_EQ(eyeDistance(), 1000 * 1.15f * 1.15f);
}

TEST_F(CameraControl, WheelDeltaZeroCountsAsForward) {
    init();
    wheel(view, {0, 0});
    EXPECT_FLOAT_EQ(eyeDistance(), 850);
}

TEST_F(CameraControl, FiveForwardStepsScaleTheOffsetBy085ToTheFifth) {
    init();
    for (int i = 0; i < 5; ++i) wheel(view, {0, 120});
    EXPECT_NEAR(eyeDistance() / 1000, 0.4437, 1e-4);
    EXPECT_FLOAT_EQ(eyeDistance(), static_cast<float>(1000 * std::pow(0.85, 5)));
}

TEST_F(CameraControl, SidewaysWheelsCountByTheirMainAxis) {
    init();
    wheel(view, {-120, 10});
    EXPECT_FLOAT_EQ(eyeDistance(), 1150);
}

TEST_F(CameraControl, ZoomIsNotClampedAndNeverReachesTheMiddle) {
    init();
    for (int i = 0; i < 200; ++i) wheel(view, {0, 120});
    EXPECT_GT(eyeDistance(), 0);
    EXPECT_LT(eyeDistance(), 1e-9f * 1000);
}

}  // namespace
}  // namespace kova::qwidget
