#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QVBoxLayout>
#include <QtTest>

#include <cmath>
#include <memory>

#include "qwidget/cpumouseqopenglwidget.h"
#include "qwidget/imucalibrationqopenglwidget.h"
#include "qwidget/imupositionqopenglwidget.h"
#include "qwidget/pointcloudqopenglwidget.h"

// The views on a screen, drawn by a real OpenGL, steered by real mouse events.

namespace kova::qwidget {
namespace {

// A window that holds one view and shows it at 640 x 480.
template <typename View>
class Window {
public:
    Window() : window_(std::make_unique<QWidget>()) {
        auto* layout = new QVBoxLayout(window_.get());
        layout->setContentsMargins(0, 0, 0, 0);
        view_ = new View;
        layout->addWidget(view_);
        window_->setFixedSize(640, 480);
    }
    bool show() {
        window_->show();
        return QTest::qWaitForWindowExposed(window_.get()) && view_->isValid();
    }
    View& view() { return *view_; }
    QWindow* handle() { return window_->windowHandle(); }
    void close() { window_.reset(); }

private:
    std::unique_ptr<QWidget> window_;
    View* view_;
};

void expectColour(const QImage& picture, int x, int y, int r, int g, int b) {
    const QColor colour = picture.pixelColor(x, y);
    EXPECT_LE(
        std::abs(colour.red() - r) + std::abs(colour.green() - g) + std::abs(colour.blue() - b), 6)
        << "at " << x << ", " << y << ": " << colour.name().toStdString();
}

// Four quarters: red, green, blue, white, in reading order.
std::vector<unsigned char> quarters(int width, int height) {
    std::vector<unsigned char> image(static_cast<std::size_t>(width * height * 4), 255);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool right = x >= width / 2;
            const bool low = y >= height / 2;
            unsigned char* pixel = &image[static_cast<std::size_t>((y * width + x) * 4)];
            pixel[0] = right == low ? 255 : 0;
            pixel[1] = right ? 255 : 0;
            pixel[2] = low ? 255 : 0;
            if (!right && !low)
                pixel[0] = 255;
            if (!right && low)
                pixel[0] = 0;
        }
    }
    return image;
}

TEST(GlImageView, ShowsTheImageUprightInItsLetterbox) {
    Window<CPUMouseQOpenGLWidget> window;
    ASSERT_TRUE(window.show());
    CPUMouseQOpenGLWidget& view = window.view();
    expectColour(view.grabFramebuffer(), 320, 240, 0, 0, 0);
    view.initResource(1280, 480, false);
    view.setImagePointer(quarters(1280, 480).data());
    const QImage picture = view.grabFramebuffer();
    ASSERT_EQ(picture.size(), QSize(640, 480));
    expectColour(picture, 160, 60, 0, 0, 0);
    expectColour(picture, 160, 180, 255, 0, 0);
    expectColour(picture, 480, 180, 0, 255, 0);
    expectColour(picture, 160, 300, 0, 0, 255);
    expectColour(picture, 480, 300, 255, 255, 255);
    expectColour(picture, 480, 420, 0, 0, 0);

    view.setKeepRatio(false);
    expectColour(view.grabFramebuffer(), 160, 60, 255, 0, 0);
    view.uninitResource();
    expectColour(view.grabFramebuffer(), 160, 180, 0, 0, 0);
}

TEST(GlImageView, DeviceImageLooksTheSame) {
    Window<CPUMouseQOpenGLWidget> window;
    ASSERT_TRUE(window.show());
    window.view().initResource(64, 48, false);
    std::vector<unsigned char> image = quarters(64, 48);
    window.view().setImagePointerGPU(image.data());
    const QImage device = window.view().grabFramebuffer();
    window.view().setImagePointer(image.data());
    EXPECT_EQ(device, window.view().grabFramebuffer());
    expectColour(device, 160, 120, 255, 0, 0);
}

TEST(GlImageView, GreyImageIsGrey) {
    Window<CPUMouseQOpenGLWidget> window;
    ASSERT_TRUE(window.show());
    window.view().initResource(64, 48, true);
    std::vector<unsigned char> image(64 * 48, 100);
    window.view().setImagePointer(image.data());
    expectColour(window.view().grabFramebuffer(), 300, 200, 100, 100, 100);
}

TEST(GlImageView, OverlaysAreDrawnOverTheImage) {
    Window<CPUMouseQOpenGLWidget> window;
    ASSERT_TRUE(window.show());
    CPUMouseQOpenGLWidget& view = window.view();
    view.initResource(64, 48, true);
    std::vector<unsigned char> image(64 * 48, 0);
    view.setImagePointer(image.data());
    view.setDrawCross(true);
    view.setPressed({16, 12});
    view.setReleased({16, 12});
    QImage picture = view.grabFramebuffer();
    expectColour(picture, 155, 119, 204, 51, 0);
    expectColour(picture, 160, 125, 204, 51, 0);
    expectColour(picture, 160, 140, 0, 0, 0);
    view.setDrawVerticalLine(true, 3);
    picture = view.grabFramebuffer();
    expectColour(picture, 160, 300, 51, 51, 204);
    expectColour(picture, 480, 300, 51, 51, 204);
}

TEST(GlImageView, DragOnTheScreenRecordsAndSignals) {
    Window<CPUMouseQOpenGLWidget> window;
    ASSERT_TRUE(window.show());
    CPUMouseQOpenGLWidget& view = window.view();
    QSignalSpy pressed(&view, &MouseQOpenGLWidget::mouse_pressed);
    QSignalSpy moved(&view, &MouseQOpenGLWidget::mouse_moved);
    QSignalSpy released(&view, &MouseQOpenGLWidget::mouse_released);
    QTest::mousePress(window.handle(), Qt::LeftButton, {}, {100, 100});
    QTest::mouseMove(window.handle(), {130, 140});
    QTest::mouseRelease(window.handle(), Qt::LeftButton, {}, {150, 160});
    EXPECT_EQ(view.getPressed().x, 100);
    EXPECT_EQ(view.getPressed().y, 100);
    EXPECT_EQ(view.getReleased().x, 150);
    EXPECT_EQ(view.getReleased().y, 160);
    EXPECT_EQ(pressed.count(), 1);
    EXPECT_GE(moved.count(), 1);
    EXPECT_EQ(released.count(), 1);

    QTest::mousePress(window.handle(), Qt::LeftButton, {}, {200, 50});
    QTest::mouseRelease(window.handle(), Qt::LeftButton, {}, {200, 50});
    EXPECT_EQ(view.getPressed().x, 200);
    EXPECT_EQ(view.getReleased().x, 200);
    const int moves = moved.count();
    QTest::mouseClick(window.handle(), Qt::RightButton, {}, {200, 50});
    EXPECT_EQ(view.getPressed().x, -1);
    EXPECT_EQ(view.getReleased().y, -1);
    EXPECT_EQ(pressed.count(), 3);
    EXPECT_EQ(released.count(), 3);
    EXPECT_EQ(moved.count(), moves);
}

// A wall 2 m away, red on the left and green on the right.
void feedWall(PointCloudQOpenGLWidget& view, int width, int height) {
    std::vector<float> cloud;
    std::vector<unsigned char> image;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            cloud.insert(cloud.end(), {(static_cast<float>(x) + 0.5f) * 2000 / width - 1000,
                                       (static_cast<float>(y) + 0.5f) * 1500 / height - 750, 2000});
            const bool right = x >= width / 2;
            image.insert(image.end(), {static_cast<unsigned char>(right ? 0 : 255),
                                       static_cast<unsigned char>(right ? 255 : 0), 0, 255});
        }
    }
    view.setImagePointer(image.data());
    view.setPointCloudPointer(cloud.data());
}

TEST(GlPointCloudView, ShowsThePointsInTheirColours) {
    Window<PointCloudQOpenGLWidget> window;
    testing::internal::CaptureStdout();
    ASSERT_TRUE(window.show());
    PointCloudQOpenGLWidget& view = window.view();
    expectColour(view.grabFramebuffer(), 320, 240, 0, 0, 0);
    view.initResource(320, 240, 4);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    view.setShowCamera(false);
    view.setShowAxes(false);
    view.setShowFov(false);
    feedWall(view, 320, 240);
    const QImage picture = view.grabFramebuffer();
    // The wall is at z = 2000, the eye at z = 4000, looking down -z: left is red.
    int red = 0;
    int green = 0;
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            const QRgb pixel = picture.pixel(x, y);
            red += qRed(pixel) > 200 && x < 320;
            green += qGreen(pixel) > 200 && x >= 320;
        }
    }
    EXPECT_GT(red, 10000);
    EXPECT_GT(green, 10000);

    view.setShowPointCloud(false);
    expectColour(view.grabFramebuffer(), 200, 240, 0, 0, 0);
    view.setShowCamera(true);
    EXPECT_NE(view.grabFramebuffer(), picture);
}

TEST(GlPointCloudView, DragTurnsTheSceneAndAsksForARepaint) {
    Window<PointCloudQOpenGLWidget> window;
    ASSERT_TRUE(window.show());
    PointCloudQOpenGLWidget& view = window.view();
    view.initResource(64, 48, 4);
    feedWall(view, 64, 48);
    const QImage before = view.grabFramebuffer();
    QSignalSpy swapped(&view, &QOpenGLWidget::frameSwapped);
    QTest::mousePress(window.handle(), Qt::LeftButton, {}, {100, 100});
    QTest::mouseMove(window.handle(), {160, 100});
    QTest::mouseRelease(window.handle(), Qt::LeftButton, {}, {160, 100});
    EXPECT_TRUE(QTest::qWaitFor([&] { return swapped.count() > 0; }));
    const QImage turned = view.grabFramebuffer();
    EXPECT_NE(turned, before);

    // A move without a button repaints, too, where such moves arrive.
    view.setMouseTracking(true);
    QTest::qWait(50);
    swapped.clear();
    QTest::mouseMove(window.handle(), {170, 110});
    EXPECT_TRUE(QTest::qWaitFor([&] { return swapped.count() > 0; }));
    EXPECT_EQ(view.grabFramebuffer(), turned);
}

TEST(GlImuPositionView, ShowsTheBodyAndTurnsIt) {
    Window<IMUPositionQOpenGLWidget> window;
    ASSERT_TRUE(window.show());
    IMUPositionQOpenGLWidget& view = window.view();
    expectColour(view.grabFramebuffer(), 320, 240, 0, 0, 0);
    view.makeCurrent();
    view.initResource(640, 480);
    view.set_north_axis(NORTH_AXIS_Z_NEGATIVE);
    const QImage level = view.grabFramebuffer();
    float quarter_turn[4] = {0, 0, 0.70710678f, 0.70710678f};
    view.set_quaternion(quarter_turn);
    EXPECT_NE(view.grabFramebuffer(), level);
    view.set_show_module(false);
    EXPECT_NE(view.grabFramebuffer(), level);
}

TEST(GlImuCalibrationView, ShowsItsPoints) {
    Window<IMUCalibrationQOpenGLWidget> window;
    ASSERT_TRUE(window.show());
    const QImage empty = window.view().grabFramebuffer();
    imu::IMUData data;
    data.accel = {100, 100, 0};
    window.view().set_imu_data(data);
    EXPECT_NE(window.view().grabFramebuffer(), empty);
}

TEST(GlViews, AWindowMayDieWithoutACloseEvent) {
    Window<CPUMouseQOpenGLWidget> images;
    Window<PointCloudQOpenGLWidget> cloud;
    Window<CPUMouseQOpenGLWidget> other;
    ASSERT_TRUE(images.show() && cloud.show() && other.show());
    other.view().initResource(64, 48, false);
    std::vector<unsigned char> image = quarters(64, 48);
    other.view().setImagePointer(image.data());
    const QImage before = other.view().grabFramebuffer();
    images.view().initResource(64, 48, true);
    cloud.view().initResource(64, 48, 4);
    feedWall(cloud.view(), 64, 48);
    cloud.view().grabFramebuffer();
    // With another view's context current, which must not lose its objects.
    other.view().makeCurrent();
    images.close();
    cloud.close();
    EXPECT_EQ(other.view().grabFramebuffer(), before);
}

TEST(GlViews, ResourcesAskedForBeforeTheFirstShowAreHarmless) {
    CPUMouseQOpenGLWidget image_view;
    image_view.initResource(64, 48, true);
    std::vector<unsigned char> image(64 * 48 * 4, 7);
    image_view.setImagePointer(image.data());
    image_view.uninitResource();

    testing::internal::CaptureStdout();
    Window<PointCloudQOpenGLWidget> window;
    window.view().initResource(64, 48, 4);
    feedWall(window.view(), 64, 48);
    testing::internal::GetCapturedStdout();
    ASSERT_TRUE(window.show());
    window.view().grabFramebuffer();
    // The next capture finds a context.
    window.view().uninitResource();
    window.view().initResource(64, 48, 4);
    feedWall(window.view(), 64, 48);
    window.view().setShowCamera(false);
    const QImage picture = window.view().grabFramebuffer();
    int lit = 0;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) lit += (picture.pixel(x, y) & 0xFFFFFF) != 0;
    EXPECT_GT(lit, 1000);
}

}  // namespace
}  // namespace kova::qwidget
