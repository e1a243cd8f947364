#include "qwidget/indicatorwidget.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QImage>
#include <QMetaMethod>
#include <QTest>

#include <cmath>

namespace kova::test {
namespace {

using kova::qwidget::IndicatorWidget;

class IndicatorWidgetTest : public testing::Test {
protected:
    IndicatorWidgetTest() { indicator.resize(120, 60); }

    QImage paint() {
        QImage image(indicator.size(), QImage::Format_RGB32);
        image.fill(Qt::magenta);
        indicator.render(&image);
        return image;
    }

    // How far along the diagonal the centre of a pixel lies.
    double along(int x, int y) const {
        const double w = indicator.width();
        const double h = indicator.height();
        return ((x + 0.5) * w + (y + 0.5) * h) / (w * w + h * h);
    }

    static void expectNear(const QColor& actual, double red, double green, double blue) {
        EXPECT_NEAR(actual.red(), red, 3);
        EXPECT_NEAR(actual.green(), green, 3);
        EXPECT_NEAR(actual.blue(), blue, 3);
    }

    IndicatorWidget indicator;
};

TEST_F(IndicatorWidgetTest, HasNoSignalsSlotsOrPropertiesOfItsOwn) {
    const QMetaObject& meta = IndicatorWidget::staticMetaObject;
    EXPECT_STREQ(meta.className(), "kova::qwidget::IndicatorWidget");
    EXPECT_EQ(meta.methodCount(), meta.methodOffset());
    EXPECT_EQ(meta.propertyCount(), meta.propertyOffset());
}

TEST_F(IndicatorWidgetTest, FreshIndicatorPaintsWhiteToBlack) {
    const QImage image = paint();
    for (int y = 2; y < 58; y += 5) {
        for (int x = 2; x < 118; x += 5) {
            const double grey = 255 * (1 - along(x, y));
            expectNear(image.pixelColor(x, y), grey, grey, grey);
        }
    }
    EXPECT_GT(image.pixelColor(2, 2).lightness(), 240);
    EXPECT_LT(image.pixelColor(117, 57).lightness(), 15);
}

TEST_F(IndicatorWidgetTest, ColouredIndicatorPaintsRedThroughLightGreenToBlue) {
    indicator.set_color(true);
    const QImage image = paint();
    for (int y = 2; y < 58; y += 5) {
        for (int x = 2; x < 118; x += 5) {
            const double t = along(x, y);
            const double u = t < 0.5 ? t * 2 : (t - 0.5) * 2;
            if (t < 0.5)
                expectNear(image.pixelColor(x, y), 255 - 128 * u, 255 * u, 127 * u);
            else
                expectNear(image.pixelColor(x, y), 127 * (1 - u), 255 * (1 - u), 127 + 128 * u);
        }
    }
}

TEST_F(IndicatorWidgetTest, OutlineIsBlackAndCoversHalfAPixelOnEachSide) {
    // The default pen, antialiased, runs along the pixels' corners: half of it falls into the
    // first row, half of it on either side of the last line of the rectangle.
    indicator.set_color(true);
    const QImage image = paint();
    const QColor first = image.pixelColor(2, 0);
    const QColor second = image.pixelColor(2, 1);
    EXPECT_NEAR(first.red(), second.red() / 2, 6);
    EXPECT_LT(image.pixelColor(60, 58).lightness(), image.pixelColor(60, 57).lightness() * 0.6);
}

TEST_F(IndicatorWidgetTest, GradientFollowsTheSize) {
    indicator.resize(30, 200);
    const QImage image = paint();
    const double grey = 255 * (1 - along(15, 100));
    expectNear(image.pixelColor(15, 100), grey, grey, grey);
}

class PaintCounter : public QObject {
public:
    int paints = 0;
    bool eventFilter(QObject*, QEvent* event) override {
        paints += event->type() == QEvent::Paint;
        return false;
    }
};

TEST_F(IndicatorWidgetTest, SettingTheColourAsksForNoRepaint) {
    PaintCounter counter;
    indicator.installEventFilter(&counter);
    indicator.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&indicator));
    QCoreApplication::processEvents();
    const int before = counter.paints;
    indicator.set_color(true);
    for (int i = 0; i < 3; ++i) QCoreApplication::processEvents();
    EXPECT_EQ(counter.paints, before);
    indicator.repaint();
    EXPECT_EQ(counter.paints, before + 1);
    indicator.set_color(false);
    const QColor middle = paint().pixelColor(60, 30);
    expectNear(middle, middle.red(), middle.red(), middle.red());
}

}  // namespace
}  // namespace kova::test
