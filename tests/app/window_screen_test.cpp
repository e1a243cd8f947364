#include <QAbstractSlider>
#include <QGuiApplication>
#include <QLabel>
#include <QScreen>
#include <QTest>
#include <QWindow>

#include <cmath>

#include "qwidget/cpumouseqopenglwidget.h"
#include "qwidget/pointcloudqopenglwidget.h"
#include "tests/app/window_fixture.h"
#include "tests/support/golden_image.h"

// The window on a real screen, drawn by a real OpenGL, with the scripted camera behind it. The
// size of the screen is that of the virtual display that the test runs under.

namespace kova::test {
namespace {

struct ScreenRow {
    int width, height;
    QSize window;
    bool resized;
};

constexpr ScreenRow kScreens[] = {
    {1920, 1080, {1745, 977}, true},
    {1280, 720, {1163, 651}, true},
    {2560, 1440, {2500, 1400}, false},
};

// A street as simple as can be: sky, ground, two posts, tinted by the kind of view.
void paintScene(bino::OBSTACLE_VIEW_TYPE type, int width, int height, unsigned char* out) {
    const bool grey = type == bino::OBSTACLE_VIEW_TYPE_GROUND_MAP;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool post = (std::abs(x - width / 4) < 20 || std::abs(x - 2 * width / 3) < 35) &&
                              y > height / 3 && y < 3 * height / 4;
            const bool ground = y > height / 2;
            if (grey) {
                *out++ = post ? 0 : ground ? 255 : 127;
                continue;
            }
            *out++ = static_cast<unsigned char>(post ? 200 : ground ? 60 : 120);
            *out++ = static_cast<unsigned char>(post ? 60 : 90 + 10 * type);
            *out++ = static_cast<unsigned char>(ground && !post ? 200 : 100);
            *out++ = 255;
        }
    }
}

Size3_<float> scenePoint(int x, int y) {
    const float z = y > 210 ? 400000.0f / static_cast<float>(y - 140) : 5800.0f;
    return {(static_cast<float>(x) - 320.0f) * z / 500.0f,
            (static_cast<float>(y) - 200.0f) * z / 500.0f, z};
}

class WindowScreen : public WindowTest {
protected:
    void SetUp() override {
        const QSize size = QGuiApplication::primaryScreen()->geometry().size();
        for (const ScreenRow& row : kScreens)
            if (QSize(row.width, row.height) == size)
                screen = &row;
        ASSERT_NE(screen, nullptr) << "a screen of " << size.width() << " x " << size.height();
        CameraScript script = cameras({bino::CAMERA_MODEL_QUELVAR_P1});
        script.imu = true;
        script.paint = paintScene;
        script.point = scenePoint;
        makeWindow(script);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        settle();
    }

    void settle() {
        for (int i = 0; i < 5; ++i) runFor(10);
    }

    void startWithOneFrame() {
        camera.scriptGrabs({RESULT_OK});
        click("btnStart");
        ASSERT_TRUE(waitFor([&] { return text("labelFps") != ""; }));
        child<QLabel>("labelFps")->setText("Calculation time: 23.4 ms");
        settle();
    }

    void drag(QWidget* view, QPoint from, QPoint to) {
        QWindow* handle = window->windowHandle();
        const auto at = [&](QPoint p) { return view->mapTo(window.get(), p); };
        QTest::mousePress(handle, Qt::LeftButton, {}, at(from));
        QTest::mouseMove(handle, at((from + to) / 2));
        QTest::mouseMove(handle, at(to));
        QTest::mouseRelease(handle, Qt::LeftButton, {}, at(to));
        child<QLabel>("labelFps")->setText("Calculation time: 23.4 ms");
        settle();
        child<QLabel>("labelFps")->setText("Calculation time: 23.4 ms");
        settle();
    }

    testing::AssertionResult looksAs(const char* name) {
        return matchesGolden(
            window->QWidget::grab().toImage().convertToFormat(QImage::Format_RGB32), "window",
            std::string(name) + "_" + std::to_string(screen->width));
    }

    const ScreenRow* screen = nullptr;
};

TEST_F(WindowScreen, WindowFitsTheScreenAndSaysSo) {
    const auto lines = log.lines();
    ASSERT_GE(lines.size(), 1u);
    EXPECT_EQ(lines[0], "default: primary screen: width " + std::to_string(screen->width) +
                            ", height " + std::to_string(screen->height));
    EXPECT_EQ(log.count("default: screen resolution is not enough, resize..."),
              screen->resized ? 1 : 0);
    EXPECT_EQ(window->size(), screen->window);
}

TEST_F(WindowScreen, IdleWindow) {
    EXPECT_TRUE(looksAs("idle"));
}

TEST_F(WindowScreen, CapturingWindow) {
    startWithOneFrame();
    drag(child("oglWImage"), {60, 60}, {200, 120});
    EXPECT_TRUE(looksAs("capturing"));
}

TEST_F(WindowScreen, ViewsShowTheWholeImageAndThePixelUnderTheMouse) {
    startWithOneFrame();
    auto* view = child<qwidget::CPUMouseQOpenGLWidget>("oglWImage");
    const QImage shown = view->grabFramebuffer();
    ASSERT_EQ(shown.size(), view->size());
    // Stretched over the whole view: sky in the upper corners, ground in the lower ones.
    for (const int x : {2, shown.width() - 3}) {
        EXPECT_EQ(shown.pixelColor(x, 2), QColor(120, 100, 100));
        EXPECT_EQ(shown.pixelColor(x, shown.height() - 3), QColor(60, 100, 200));
    }
    // The last pixel of the view is the last pixel of the image.
    QTest::mouseClick(window->windowHandle(), Qt::LeftButton, {},
                      view->mapTo(window.get(), QPoint(view->width() - 1, view->height() - 1)));
    settle();
    EXPECT_EQ(MainWindowAccess::released(*window), (Size2_<int>{639, 399}));
    EXPECT_EQ(text("labelInfo").find("Distance [x,y,z] at (639, 399) = ["), 0u);
}

TEST_F(WindowScreen, StopLeavesBlackViewsAndARestartShowsTheNextFrame) {
    startWithOneFrame();
    click("btnStop");
    settle();
    auto* view = child<qwidget::CPUMouseQOpenGLWidget>("oglWDepth");
    EXPECT_EQ(view->grabFramebuffer().pixelColor(2, 2), QColor(0, 0, 0));
    startWithOneFrame();
    EXPECT_EQ(view->grabFramebuffer().pixelColor(2, 2), QColor(120, 130, 100));
}

TEST_F(WindowScreen, WindowThatDiesDuringACaptureIsSafe) {
    camera.scriptGrabs({}, RESULT_OK);
    click("btnStart");
    ASSERT_TRUE(waitFor([&] { return camera.framesDelivered() > 2; }));
    dropWindow();
    EXPECT_EQ(camera.count("~StereoCamera"), 1);
}

}  // namespace
}  // namespace kova::test
