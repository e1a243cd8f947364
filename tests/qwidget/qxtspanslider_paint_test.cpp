#include <QImage>

#include "tests/qwidget/span_slider_fixture.h"

namespace kova::test {
namespace {

const QColor kGroove(220, 220, 220);
const QColor kHandle(0, 255, 0);
const QColor kSunkenHandle(255, 0, 0);
const QColor kHighlight(100, 150, 200);

class SpanSliderPaintTest : public SpanSliderTest {
protected:
    SpanSliderPaintTest() {
        QPalette palette;
        palette.setColor(QPalette::Highlight, kHighlight);
        palette.setColor(QPalette::Dark, QColor(255, 0, 255));  // must not be seen
        slider.setPalette(palette);
    }

    const QImage& paint() {
        style.drawn.clear();
        image = QImage(slider.size(), QImage::Format_RGB32);
        image.fill(Qt::black);
        slider.render(&image);
        return image;
    }

    void expectColor(int x, int y, const QColor& expected, int tolerance = 0) const {
        const QColor actual = image.pixelColor(x, y);
        EXPECT_NEAR(actual.red(), expected.red(), tolerance) << "red at " << x << "," << y;
        EXPECT_NEAR(actual.green(), expected.green(), tolerance) << "green at " << x << "," << y;
        EXPECT_NEAR(actual.blue(), expected.blue(), tolerance) << "blue at " << x << "," << y;
    }

    /// The gradient over the groove, `fraction` of the way from its first to its last edge.
    static QColor gradient(double fraction) {
        const QColor from = kHighlight.darker(120);
        const QColor to = kHighlight.lighter(108);
        const auto mix = [&](int a, int b) { return qRound(a + fraction * (b - a)); };
        return {mix(from.red(), to.red()), mix(from.green(), to.green()),
                mix(from.blue(), to.blue())};
    }

    QImage image;
};

TEST_F(SpanSliderPaintTest, GrooveAndTickMarksAreDrawnFirstAtValueZero) {
    start(20, 80);
    paint();
    ASSERT_EQ(style.drawn.size(), 3u);
    EXPECT_EQ(style.drawn[0].sub_controls,
              QStyle::SubControls(QStyle::SC_SliderGroove | QStyle::SC_SliderTickmarks));
    EXPECT_EQ(style.drawn[0].value, 0);
    EXPECT_EQ(style.drawn[0].position, 0);
}

TEST_F(SpanSliderPaintTest, HandlesAreDrawnWithTheirValueAndPosition) {
    slider.setTracking(false);
    start(20, 80);
    slider.setLowerPosition(30);
    slider.setUpperPosition(70);
    paint();
    EXPECT_EQ(style.drawn[1].sub_controls, QStyle::SubControls(QStyle::SC_SliderHandle));
    EXPECT_EQ(style.drawn[1].value, 20);
    EXPECT_EQ(style.drawn[1].position, 30);
    EXPECT_EQ(style.drawn[2].value, 80);
    EXPECT_EQ(style.drawn[2].position, 70);
    expectColor(30, 1, kHandle);
    expectColor(39, 1, kHandle);
    expectColor(40, 1, kGroove);
    expectColor(69, 1, kGroove);
    expectColor(70, 1, kHandle);
}

TEST_F(SpanSliderPaintTest, HandlePressedLastIsDrawnLast) {
    start(50, 54);
    for (const auto last : {QxtSpanSlider::SpanHandleNone, QxtSpanSlider::SpanHandleUpper}) {
        slider.d().last_pressed = last;
        paint();
        EXPECT_EQ(style.drawn[1].value, 50);
        EXPECT_EQ(style.drawn[2].value, 54);
    }
    slider.d().last_pressed = QxtSpanSlider::SpanHandleLower;
    paint();
    EXPECT_EQ(style.drawn[1].value, 54);
    EXPECT_EQ(style.drawn[2].value, 50);
}

TEST_F(SpanSliderPaintTest, PressedHandleIsActiveAndSunken) {
    start(20, 80);
    slider.d().lower_pressed = QStyle::SC_SliderHandle;
    slider.d().upper_pressed = QStyle::SC_SliderGroove;
    paint();
    EXPECT_TRUE(style.drawn[1].sunken);
    EXPECT_EQ(style.drawn[1].active, QStyle::SubControls(QStyle::SC_SliderHandle));
    EXPECT_FALSE(style.drawn[2].sunken);
    EXPECT_EQ(style.drawn[2].active, QStyle::SubControls(QStyle::SC_None));
    expectColor(25, 10, kSunkenHandle);
    expectColor(85, 10, kHandle);
}

// The handles' centres are at pixel value + 4 across and 9 down (the widget is 20 high). The
// rectangle covers rows 7 to 10; its outline's lower edge lies in row 11.
TEST_F(SpanSliderPaintTest, HorizontalSpanIsDrawnBetweenTheHandleCentres) {
    start(20, 80);
    paint();
    const QColor pen = kHighlight.darker(130);
    expectColor(50, 6, kGroove);
    expectColor(50, 7, pen);
    for (int y = 8; y <= 10; ++y) expectColor(50, y, gradient((y + 0.5) / 19.0), 3);
    expectColor(50, 11, pen);
    expectColor(50, 12, kGroove);
    expectColor(30, 9, gradient(9.5 / 19.0), 3);
    expectColor(79, 9, gradient(9.5 / 19.0), 3);
    expectColor(19, 9, kGroove);
    expectColor(91, 9, kGroove);
}

TEST_F(SpanSliderPaintTest, VerticalSpanIsDrawnBetweenTheHandleCentres) {
    makeVertical();
    start(20, 80);
    paint();
    const QColor pen = kHighlight.darker(150);
    expectColor(6, 50, kGroove);
    expectColor(7, 50, pen);
    for (int x = 8; x <= 10; ++x) expectColor(x, 50, gradient((x + 0.5) / 19.0), 3);
    expectColor(11, 50, pen);
    expectColor(12, 50, kGroove);
    expectColor(9, 31, gradient(9.5 / 19.0), 3);
    expectColor(9, 78, gradient(9.5 / 19.0), 3);
    expectColor(9, 19, kGroove);
    expectColor(9, 91, kGroove);
}

TEST_F(SpanSliderPaintTest, SpanIsDrawnWhicheverHandleIsFirst) {
    slider.setTracking(false);
    start(20, 80);
    slider.setLowerPosition(90);
    slider.setUpperPosition(10);
    paint();
    expectColor(50, 9, gradient(9.5 / 19.0), 3);
    expectColor(5, 9, kGroove);
}

// A groove that ends inside the widget cuts the span.
class ShortGrooveStyle : public SliderStyle {
public:
    QRect subControlRect(ComplexControl control, const QStyleOptionComplex* option,
                         SubControl sub_control, const QWidget* widget) const override {
        const QRect rect = SliderStyle::subControlRect(control, option, sub_control, widget);
        if (control != CC_Slider || sub_control != SC_SliderGroove)
            return rect;
        return rect.width() > rect.height() ? rect.adjusted(0, 0, -50, 0)
                                            : rect.adjusted(0, 0, 0, -50);
    }
};

TEST_F(SpanSliderPaintTest, SpanIsCutByTheGrooveLessOnePixel) {
    ShortGrooveStyle short_groove;
    slider.setStyle(&short_groove);
    start(20, 80);
    paint();
    // The groove is 60 long (0 to 59), shrunk to 0 to 58: the outline's last column is 59.
    expectColor(58, 9, gradient(9.5 / 19.0), 3);
    expectColor(59, 9, kHighlight.darker(130));
    expectColor(60, 9, kGroove);
    makeVertical();
    paint();
    expectColor(9, 58, gradient(9.5 / 19.0), 3);
    expectColor(9, 59, kHighlight.darker(150));
    expectColor(9, 60, kGroove);
    slider.setStyle(&style);
}

}  // namespace
}  // namespace kova::test
