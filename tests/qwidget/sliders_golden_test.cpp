#include <gtest/gtest.h>

#include <QApplication>
#include <QTest>
#include <QWindow>

#include <functional>
#include <string>

#include "qwidget/indicatorwidget.h"
#include "qwidget/mouseqslider.h"
#include "qwidget/qxtspanslider.h"
#include "tests/support/golden_image.h"

namespace kova::test {
namespace {

using kova::qwidget::IndicatorWidget;
using kova::qwidget::MouseQSlider;
using kova::qwidget::QxtSpanSlider;

void settle() {
    for (int i = 0; i < 3; ++i) QCoreApplication::processEvents();
}

// A widget beside another one that takes the focus from it, in the pinned surroundings of the test
// main.
template <class Widget>
class Stage {
public:
    Stage() {
        other.setFocusPolicy(Qt::StrongFocus);
        other.setGeometry(0, 0, 5, 5);
    }
    void show(QSize size) {
        widget.setGeometry(10, 10, size.width(), size.height());
        window.resize(size + QSize(20, 20));
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
        QApplication::setActiveWindow(&window);
        other.setFocus();
        settle();
        ASSERT_FALSE(widget.hasFocus());
    }
    void focus() {
        widget.setFocus();
        window.setAttribute(Qt::WA_KeyboardFocusChange);  // else the frame is not drawn
        settle();
        ASSERT_TRUE(widget.hasFocus());
    }
    void mouseDown(QPoint point) {
        QTest::mousePress(window.windowHandle(), Qt::LeftButton, {}, point + widget.pos());
        settle();
    }
    void mouseUp(QPoint point) {
        QTest::mouseRelease(window.windowHandle(), Qt::LeftButton, {}, point + widget.pos());
        settle();
    }
    QImage picture() { return widget.grab().toImage(); }

    QWidget window;
    QWidget other{&window};
    Widget widget{&window};
};

class SpanSliderGolden : public testing::Test {
protected:
    void show() {
        stage.widget.setOrientation(Qt::Horizontal);
        stage.widget.setRange(0, 100);
        stage.widget.setSpan(25, 70);
        stage.show({240, 24});
    }
    Stage<QxtSpanSlider> stage;
};

TEST_F(SpanSliderGolden, Default) {
    show();
    EXPECT_TRUE(matchesGolden(stage.picture(), "qxtspanslider", "default"));
}

TEST_F(SpanSliderGolden, Focused) {
    show();
    stage.focus();
    EXPECT_TRUE(matchesGolden(stage.picture(), "qxtspanslider", "focused"));
}

TEST_F(SpanSliderGolden, Disabled) {
    show();
    stage.widget.setEnabled(false);
    EXPECT_TRUE(matchesGolden(stage.picture(), "qxtspanslider", "disabled"));
}

// The lower handle lies under the upper one until it is pressed.
TEST_F(SpanSliderGolden, Overlapping) {
    show();
    stage.widget.setSpan(48, 52);
    EXPECT_TRUE(matchesGolden(stage.picture(), "qxtspanslider", "overlapping"));
}

TEST_F(SpanSliderGolden, MouseDown) {
    show();
    stage.widget.setSpan(48, 52);
    const QPoint lower_handle(111, 12);
    stage.mouseDown(lower_handle);
    ASSERT_TRUE(stage.widget.isSliderDown());
    EXPECT_TRUE(matchesGolden(stage.picture(), "qxtspanslider", "mouse_down"));
    stage.mouseUp(lower_handle);
}

TEST_F(SpanSliderGolden, Vertical) {
    stage.widget.setOrientation(Qt::Vertical);
    stage.widget.setRange(0, 100);
    stage.widget.setSpan(25, 70);
    stage.show({24, 240});
    EXPECT_TRUE(matchesGolden(stage.picture(), "qxtspanslider", "vertical"));
}

TEST_F(SpanSliderGolden, WithTickMarks) {
    stage.widget.setTickPosition(QSlider::TicksBelow);
    stage.widget.setTickInterval(10);
    show();
    EXPECT_TRUE(matchesGolden(stage.picture(), "qxtspanslider", "tick_marks"));
}

class MouseSliderGolden : public testing::Test {
protected:
    void show() {
        stage.widget.setOrientation(Qt::Horizontal);
        stage.widget.setRange(0, 100);
        stage.widget.setValue(40);
        stage.show({240, 24});
    }
    Stage<MouseQSlider> stage;
};

TEST_F(MouseSliderGolden, Default) {
    show();
    EXPECT_TRUE(matchesGolden(stage.picture(), "mouseqslider", "default"));
}

TEST_F(MouseSliderGolden, Focused) {
    show();
    stage.focus();
    EXPECT_TRUE(matchesGolden(stage.picture(), "mouseqslider", "focused"));
}

TEST_F(MouseSliderGolden, Disabled) {
    show();
    stage.widget.setEnabled(false);
    EXPECT_TRUE(matchesGolden(stage.picture(), "mouseqslider", "disabled"));
}

TEST_F(MouseSliderGolden, MouseDown) {
    show();
    const QPoint handle(98, 12);
    stage.mouseDown(handle);
    ASSERT_TRUE(stage.widget.isSliderDown());
    EXPECT_TRUE(matchesGolden(stage.picture(), "mouseqslider", "mouse_down"));
    stage.mouseUp(handle);
}

// Only the outline, drawn with the colour of the widget's texts, tells that it is disabled.
class IndicatorGolden : public testing::TestWithParam<bool> {};

TEST_P(IndicatorGolden, LooksTheSameUnlessDisabled) {
    const std::string name = GetParam() ? "coloured" : "grey";
    Stage<IndicatorWidget> stage;
    stage.widget.set_color(GetParam());
    stage.show({240, 24});
    EXPECT_TRUE(matchesGolden(stage.picture(), "indicatorwidget", name)) << "default";
    stage.focus();
    EXPECT_TRUE(matchesGolden(stage.picture(), "indicatorwidget", name)) << "focused";
    stage.mouseDown({100, 12});
    EXPECT_TRUE(matchesGolden(stage.picture(), "indicatorwidget", name)) << "mouse down";
    stage.mouseUp({100, 12});
    stage.widget.setEnabled(false);
    EXPECT_TRUE(matchesGolden(stage.picture(), "indicatorwidget", name + "_disabled"));
}

INSTANTIATE_TEST_SUITE_P(Ramps, IndicatorGolden, testing::Bool(), [](const auto& info) {
    return std::string(info.param ? "Coloured" : "Grey");
});

}  // namespace
}  // namespace kova::test
