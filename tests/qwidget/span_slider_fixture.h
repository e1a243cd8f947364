#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QTest>
#include <QWindow>

#include <string>
#include <vector>

#include "qwidget/qxtspanslider.h"
#include "qwidget/qxtspanslider_p.h"
#include "tests/support/slider_style.h"

namespace kova::test {

using kova::qwidget::QxtSpanSlider;
using kova::qwidget::QxtSpanSliderPrivate;

/// Counts its paints and lets a test look into its state.
class OpenSpanSlider : public QxtSpanSlider {
public:
    using QxtSpanSlider::QxtSpanSlider;
    QxtSpanSliderPrivate& d() { return *d_; }
    int paints = 0;

protected:
    void paintEvent(QPaintEvent* event) override {
        ++paints;
        QxtSpanSlider::paintEvent(event);
    }
};

/// A horizontal slider over 0..100 in which a handle at value v has its left edge at pixel v (the
/// vertical one: its top edge at 100 - v), and a log of all its signals.
class SpanSliderTest : public testing::Test {
protected:
    SpanSliderTest() {
        slider.setStyle(&style);
        slider.setRange(0, 100);
        slider.setSingleStep(5);
        slider.setFixedSize(110, 20);
        QObject::connect(&slider, &QxtSpanSlider::spanChanged, [this](int lower, int upper) {
            log("span", lower, std::to_string(upper));
        });
        QObject::connect(&slider, &QxtSpanSlider::lowerValueChanged,
                         [this](int value) { log("lower", value); });
        QObject::connect(&slider, &QxtSpanSlider::upperValueChanged,
                         [this](int value) { log("upper", value); });
        QObject::connect(&slider, &QxtSpanSlider::lowerPositionChanged,
                         [this](int value) { log("lower at", value); });
        QObject::connect(&slider, &QxtSpanSlider::upperPositionChanged,
                         [this](int value) { log("upper at", value); });
        QObject::connect(&slider, &QxtSpanSlider::sliderPressed,
                         [this](QxtSpanSlider::SpanHandle handle) { log("pressed", handle); });
        QObject::connect(&slider, &QSlider::sliderReleased,
                         [this] { events.push_back("released"); });
    }

    void log(const std::string& what, int value, const std::string& more = {}) {
        events.push_back(what + " " + std::to_string(value) + (more.empty() ? "" : " " + more));
    }

    /// Values, positions and an empty log; the idle state.
    void start(int lower, int upper) {
        slider.setSpan(lower, upper);
        events.clear();
    }

    void makeVertical() {
        slider.setOrientation(Qt::Vertical);
        slider.setFixedSize(20, 110);
    }

    void show() {
        slider.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&slider));
        settle();
    }
    static void settle() {
        for (int i = 0; i < 3; ++i) QCoreApplication::processEvents();
    }

    // Through the window, as the window system delivers them: QTest's functions for widgets make no
    // drags.
    void press(QPoint point, Qt::MouseButton button = Qt::LeftButton) {
        QTest::mousePress(slider.windowHandle(), button, {}, point);
    }
    void move(QPoint point) {
        QTest::mouseMove(slider.windowHandle(), point);
        settle();
    }
    void release(QPoint point, Qt::MouseButton button = Qt::LeftButton) {
        QTest::mouseRelease(slider.windowHandle(), button, {}, point);
    }
    /// The pixel in the middle of a handle at a value.
    static QPoint at(int value) { return {value + 5, 10}; }

    /// Whether the slider accepted the key.
    bool key(int code) {
        QKeyEvent event(QEvent::KeyPress, code, Qt::NoModifier);
        QCoreApplication::sendEvent(&slider, &event);
        return event.isAccepted();
    }

    std::pair<int, int> values() const { return {slider.lowerValue(), slider.upperValue()}; }
    std::pair<int, int> positions() const {
        return {slider.lowerPosition(), slider.upperPosition()};
    }

    SliderStyle style;
    OpenSpanSlider slider{Qt::Horizontal};
    std::vector<std::string> events;
};

using Span = std::pair<int, int>;

}  // namespace kova::test
