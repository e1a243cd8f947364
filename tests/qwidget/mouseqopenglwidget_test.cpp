#include "qwidget/mouseqopenglwidget.h"

#include <gtest/gtest.h>

#include <QMetaMethod>
#include <QSignalSpy>

#include <vector>

#include "tests/qwidget/mouse_events.h"

namespace kova::qwidget {
namespace {

using test::move;
using test::press;
using test::release;
using Point = Size2_<int>;

constexpr Point kNone{-1, -1};

class MouseWidget : public testing::Test {
protected:
    MouseWidget() {
        QObject::connect(&widget, &MouseQOpenGLWidget::mouse_pressed,
                         [this] { signals_.push_back("pressed"); });
        QObject::connect(&widget, &MouseQOpenGLWidget::mouse_released,
                         [this] { signals_.push_back("released"); });
        QObject::connect(&widget, &MouseQOpenGLWidget::mouse_moved,
                         [this] { signals_.push_back("moved"); });
    }
    std::vector<std::string> take() { return std::exchange(signals_, {}); }
    void expectPoints(Point pressed, Point released) {
        EXPECT_EQ(widget.getPressed().x, pressed.x);
        EXPECT_EQ(widget.getPressed().y, pressed.y);
        EXPECT_EQ(widget.getReleased().x, released.x);
        EXPECT_EQ(widget.getReleased().y, released.y);
    }

    MouseQOpenGLWidget widget;

private:
    std::vector<std::string> signals_;
};

using Names = std::vector<std::string>;

TEST_F(MouseWidget, StartsWithoutPoints) {
    expectPoints(kNone, kNone);
    EXPECT_FALSE(widget.hasMouseTracking());
}

TEST_F(MouseWidget, DeclaresItsThreeSignalsInOrderAndNothingElse) {
    const QMetaObject& meta = MouseQOpenGLWidget::staticMetaObject;
    Names own;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        EXPECT_EQ(meta.method(i).methodType(), QMetaMethod::Signal);
        own.push_back(meta.method(i).methodSignature().toStdString());
    }
    EXPECT_EQ(own, (Names{"mouse_pressed()", "mouse_released()", "mouse_moved()"}));
    EXPECT_EQ(meta.propertyOffset(), meta.propertyCount());
}

TEST_F(MouseWidget, LeftClickWithoutMovementSetsBothPointsAndSignalsPressAndRelease) {
    press(widget, {30, 40}, Qt::LeftButton);
    expectPoints({30, 40}, kNone);
    release(widget, {30, 40}, Qt::LeftButton);
    expectPoints({30, 40}, {30, 40});
    EXPECT_EQ(take(), (Names{"pressed", "released"}));
}

TEST_F(MouseWidget, LeftDragReportsEveryMove) {
    press(widget, {30, 40}, Qt::LeftButton);
    move(widget, {31, 42}, Qt::LeftButton);
    expectPoints({30, 40}, {31, 42});
    move(widget, {35, 45}, Qt::LeftButton);
    expectPoints({30, 40}, {35, 45});
    release(widget, {36, 46}, Qt::LeftButton);
    expectPoints({30, 40}, {36, 46});
    EXPECT_EQ(take(), (Names{"pressed", "moved", "moved", "released"}));
    widget.setMouseTracking(true);  // else Qt does not deliver such moves
    move(widget, {50, 50}, Qt::NoButton);
    expectPoints({30, 40}, {36, 46});
    EXPECT_EQ(take(), Names{});
    press(widget, {1, 2}, Qt::LeftButton);
    expectPoints({1, 2}, kNone);
}

TEST_F(MouseWidget, RightClickClearsBothPointsAndSignalsPressAndRelease) {
    for (const Qt::MouseButton button : {Qt::RightButton, Qt::MiddleButton}) {
        widget.setPressed({1, 2});
        widget.setReleased({3, 4});
        press(widget, {30, 40}, button);
        expectPoints(kNone, kNone);
        widget.setReleased({3, 4});
        release(widget, {30, 40}, button);
        expectPoints(kNone, kNone);
        EXPECT_EQ(take(), (Names{"pressed", "released"}));
    }
}

TEST_F(MouseWidget, RightPressEndsALeftDrag) {
    press(widget, {30, 40}, Qt::LeftButton);
    press(widget, {30, 40}, Qt::RightButton, Qt::LeftButton);
    take();
    move(widget, {50, 60}, Qt::LeftButton | Qt::RightButton);
    expectPoints(kNone, kNone);
    EXPECT_EQ(take(), Names{});
}

TEST_F(MouseWidget, RightReleaseDuringALeftDragClearsTheReleasedPointAndTheDragGoesOn) {
    press(widget, {30, 40}, Qt::LeftButton);
    move(widget, {50, 60}, Qt::LeftButton);
    take();
    release(widget, {51, 61}, Qt::RightButton, Qt::LeftButton);
    expectPoints({30, 40}, kNone);
    EXPECT_EQ(take(), (Names{"released"}));
    move(widget, {52, 62}, Qt::LeftButton);
    expectPoints({30, 40}, {52, 62});
    EXPECT_EQ(take(), (Names{"moved"}));
}

TEST_F(MouseWidget, PositionsAreRoundedAndMayBeNegative) {
    press(widget, {-0.5, -0.6}, Qt::LeftButton);
    expectPoints({0, -1}, kNone);
    move(widget, {-0.6, -0.5}, Qt::LeftButton);
    expectPoints({0, -1}, {-1, 0});
    move(widget, {10.49, 10.5}, Qt::LeftButton);
    expectPoints({0, -1}, {10, 11});
    release(widget, {-7.3, -20.5}, Qt::LeftButton);
    expectPoints({0, -1}, {-7, -20});
}

TEST_F(MouseWidget, SettersOverwriteWithoutASignal) {
    widget.setPressed({5, 6});
    widget.setReleased({7, 8});
    expectPoints({5, 6}, {7, 8});
    EXPECT_EQ(take(), Names{});
}

TEST_F(MouseWidget, HandlersLeaveTheEventAcceptedAsItCame) {
    for (const bool accepted : {false, true}) {
        QMouseEvent event(QEvent::MouseMove, QPointF(1, 1), Qt::NoButton, Qt::NoButton,
                          Qt::NoModifier);
        struct Open : MouseQOpenGLWidget {
            using MouseQOpenGLWidget::mouseMoveEvent;
            using MouseQOpenGLWidget::mousePressEvent;
            using MouseQOpenGLWidget::mouseReleaseEvent;
        } open;
        event.setAccepted(accepted);
        open.mousePressEvent(&event);
        open.mouseMoveEvent(&event);
        open.mouseReleaseEvent(&event);
        EXPECT_EQ(event.isAccepted(), accepted);
    }
}

}  // namespace
}  // namespace kova::qwidget
