#include "qwidget/mouseqslider.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QMetaMethod>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QTest>
#include <QWindow>

#include "tests/support/slider_style.h"

namespace kova::test {
namespace {

using kova::qwidget::MouseQSlider;

// 0..100 over 200 pixels with a handle 10 pixels long, which makes half = 5.5.
template <class Slider>
class SliderBench {
public:
    explicit SliderBench(Qt::Orientation orientation = Qt::Horizontal) {
        slider.setStyle(&style);
        slider.setOrientation(orientation);
        slider.setRange(0, 100);
        slider.setFixedSize(orientation == Qt::Horizontal ? QSize(200, 20) : QSize(20, 200));
        EXPECT_EQ(slider.width(), orientation == Qt::Horizontal ? 200 : 20);
    }
    // Whether the press was accepted.
    bool press(QPointF point, Qt::MouseButton button = Qt::LeftButton) {
        QMouseEvent event(QEvent::MouseButtonPress, point, button, button, {});
        QCoreApplication::sendEvent(&slider, &event);
        return event.isAccepted();
    }
    bool release(QPointF point, Qt::MouseButton button = Qt::LeftButton) {
        QMouseEvent event(QEvent::MouseButtonRelease, point, button, Qt::NoButton, {});
        QCoreApplication::sendEvent(&slider, &event);
        return event.isAccepted();
    }
    // The value after a click across (or down) at a pixel, with the handle out of the way.
    int click(double along) {
        const int pixel = slider.orientation() == Qt::Horizontal ? static_cast<int>(along)
                                                                 : 200 - static_cast<int>(along);
        slider.setValue((pixel < 100) != slider.invertedAppearance() ? 100 : 0);
        const QPointF point =
            slider.orientation() == Qt::Horizontal ? QPointF(along, 10) : QPointF(10, along);
        EXPECT_TRUE(press(point));
        release(point);
        return slider.value();
    }

    SliderStyle style;
    Slider slider;
};

using Bench = SliderBench<MouseQSlider>;
using PlainBench = SliderBench<QSlider>;

TEST(MouseQSlider, HasNoSignalsSlotsOrPropertiesOfItsOwn) {
    const QMetaObject& meta = MouseQSlider::staticMetaObject;
    EXPECT_STREQ(meta.className(), "kova::qwidget::MouseQSlider");
    EXPECT_EQ(meta.methodCount(), meta.methodOffset());
    EXPECT_EQ(meta.propertyCount(), meta.propertyOffset());
}

TEST(MouseQSlider, ClickAt100Gives50) {
    EXPECT_EQ(Bench().click(100), 50);
}

TEST(MouseQSlider, ClickAt2Gives0) {
    EXPECT_EQ(Bench().click(2), 0);
}

TEST(MouseQSlider, ClickAt199IsClampedAndGives99) {
    EXPECT_EQ(Bench().click(199), 99);
    EXPECT_EQ(Bench().click(195), 99);
    EXPECT_EQ(Bench().click(194), 99);
}

TEST(MouseQSlider, EveryPixelGivesTheTruncatedRatio) {
    Bench bench;
    for (int x = 0; x < 200; ++x) {
        const int p = x < 6 ? 5 : x > 194 ? 194 : x;
        EXPECT_EQ(bench.click(x), static_cast<int>((p - 5.5) / 189.0 * 100)) << "at " << x;
    }
}

TEST(MouseQSlider, HandleOfOddLengthReachesTheMaximum) {
    Bench bench;
    bench.style.handle_length = 11;  // half = 6, all clamps are whole
    EXPECT_EQ(bench.click(199), 100);
    EXPECT_EQ(bench.click(0), 0);
}

TEST(MouseQSlider, InvertedAppearanceMirrorsTheValue) {
    Bench bench;
    bench.slider.setInvertedAppearance(true);
    EXPECT_EQ(bench.click(100), 50);
    EXPECT_EQ(bench.click(2), 100);
    EXPECT_EQ(bench.click(199), 1);
}

TEST(MouseQSlider, InvertedAppearanceSubtractsFromTheMaximumAlone) {
    Bench bench;
    bench.slider.setRange(20, 120);
    bench.slider.setInvertedAppearance(true);
    EXPECT_EQ(bench.click(100), 50) << "120 - (20 + 50), not 20 + 120 - 70";
}

TEST(MouseQSlider, VerticalSliderGrowsUpwards) {
    Bench bench(Qt::Vertical);
    EXPECT_EQ(bench.click(100), 50);
    EXPECT_EQ(bench.click(199), 0);
    EXPECT_EQ(bench.click(1), 99);
    EXPECT_EQ(bench.click(50), static_cast<int>((150 - 5.5) / 189.0 * 100));
}

TEST(MouseQSlider, RangeThatDoesNotStartAtZeroIsTruncatedTowardsZero) {
    Bench bench;
    bench.slider.setRange(-50, 50);
    EXPECT_EQ(bench.click(99), 0) << "-50 + 93.5 / 189 * 100 = -0.53";
    EXPECT_EQ(bench.click(98), -1) << "-1.06";
}

TEST(MouseQSlider, PositionIsRoundedAsThePositionOfAMouseEventIs) {
    EXPECT_EQ(Bench().click(24.4), static_cast<int>((24 - 5.5) / 189.0 * 100));
    EXPECT_EQ(Bench().click(24.6), static_cast<int>((25 - 5.5) / 189.0 * 100));
}

TEST(MouseQSlider, ClickOnTheGrooveSetsTheValueOnceAndIsNoPress) {
    Bench bench;
    QSignalSpy changed(&bench.slider, &QSlider::valueChanged);
    QSignalSpy pressed(&bench.slider, &QSlider::sliderPressed);
    QSignalSpy moved(&bench.slider, &QSlider::sliderMoved);
    EXPECT_TRUE(bench.press({100, 10}));
    EXPECT_FALSE(bench.slider.isSliderDown());
    bench.release({100, 10});
    ASSERT_EQ(changed.count(), 1);
    EXPECT_EQ(changed.at(0).at(0).toInt(), 50);
    EXPECT_EQ(pressed.count(), 0);
    EXPECT_EQ(moved.count(), 0);
}

// What a plain slider and this one make of the same clicks.
template <class B>
std::vector<int> behaviour(B& bench, QPointF point, Qt::MouseButton button) {
    QSignalSpy changed(&bench.slider, &QSlider::valueChanged);
    QSignalSpy pressed(&bench.slider, &QSlider::sliderPressed);
    QSignalSpy released(&bench.slider, &QSlider::sliderReleased);
    std::vector<int> seen;
    seen.push_back(bench.press(point, button));
    seen.push_back(bench.slider.isSliderDown());
    seen.push_back(bench.slider.value());
    seen.push_back(bench.release(point, button));
    seen.push_back(bench.slider.value());
    seen.push_back(changed.count());
    seen.push_back(pressed.count());
    seen.push_back(released.count());
    return seen;
}

TEST(MouseQSlider, RightClickBehavesAsInAPlainSlider) {
    for (const auto button : {Qt::RightButton, Qt::MiddleButton}) {
        Bench bench;
        PlainBench plain;
        EXPECT_EQ(behaviour(bench, {100, 10}, button), behaviour(plain, {100, 10}, button));
        EXPECT_NE(bench.slider.value(), 50);
    }
}

TEST(MouseQSlider, ClickOnTheHandleBehavesAsInAPlainSlider) {
    for (const int x : {0, 9}) {  // the handle covers 0 to 9 at value 0
        Bench bench;
        PlainBench plain;
        const auto seen = behaviour(bench, QPointF(x, 10), Qt::LeftButton);
        EXPECT_EQ(seen, behaviour(plain, QPointF(x, 10), Qt::LeftButton));
        EXPECT_EQ(seen[6], 1) << "sliderPressed";
        EXPECT_EQ(bench.slider.value(), 0);
    }
    Bench bench;
    bench.press({10, 10});  // the first pixel beside it
    EXPECT_EQ(bench.slider.value(), 2);
}

TEST(MouseQSlider, HandleIsDraggedAsInAPlainSlider) {
    Bench bench;
    bench.slider.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&bench.slider));
    QWindow* const window = bench.slider.windowHandle();
    QTest::mousePress(window, Qt::LeftButton, {}, QPoint(5, 10));
    QTest::mouseMove(window, QPoint(100, 10));
    QCoreApplication::processEvents();
    EXPECT_TRUE(bench.slider.isSliderDown());
    QTest::mouseRelease(window, Qt::LeftButton, {}, QPoint(100, 10));
    EXPECT_EQ(bench.slider.value(), 50);
    EXPECT_FALSE(bench.slider.isSliderDown());
}

TEST(MouseQSlider, SliderNoLongerThanItsHandleIsHarmless) {
    for (const int width : {1, 8, 10, 11, 12}) {
        Bench bench;
        bench.style.handle_length = 10;
        bench.slider.setFixedSize(width, 20);
        bench.press({width - 1.0, 10}, Qt::LeftButton);
        bench.press({width + 5.0, 10}, Qt::LeftButton);
        EXPECT_GE(bench.slider.value(), 0);
        EXPECT_LE(bench.slider.value(), 100);
    }
}

}  // namespace
}  // namespace kova::test
