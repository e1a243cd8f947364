#include <QLabel>
#include <QTest>

#include <limits>

#include "qwidget/cpumouseqopenglwidget.h"
#include "qwidget/pointcloudqopenglwidget.h"
#include "tests/app/drawn_lines.h"
#include "tests/app/window_fixture.h"

namespace kova::test {
namespace {

using testing::ElementsAre;

constexpr auto kR0 = bino::CAMERA_MODEL_QUELVAR_R0;
using View = qwidget::CPUMouseQOpenGLWidget;

// Smaller than the views, so that every pixel can be hit.
CameraScript smallCamera() {
    CameraScript script = cameras({kR0});
    script.size = {160, 100, 30};
    return script;
}

// A capture whose cloud says where each pixel is: (x, y, 1000).
class WindowMeasure : public WindowTest {
protected:
    void startWithOneFrame(const CameraScript& script = smallCamera()) {
        makeWindow(script);
        window->show();
        camera.scriptGrabs({RESULT_OK});
        click("btnStart");
        ASSERT_TRUE(waitFor([&] { return text("labelFps") != ""; }));
        log.clear();
    }

    View* image() { return child<View>("oglWImage"); }
    View* depth() { return child<View>("oglWDepth"); }
    qwidget::PointCloudQOpenGLWidget* cloud() {
        return child<qwidget::PointCloudQOpenGLWidget>("oglWPointCloud");
    }

    // The position in a view whose pixel is this one of the image.
    QPoint at(Size2_<int> pixel) {
        const float x = MainWindowAccess::ratioX(*window);
        const float y = MainWindowAccess::ratioY(*window);
        for (int vy = 0; vy < depth()->height(); ++vy)
            for (int vx = 0; vx < depth()->width(); ++vx)
                if (app::imagePixel({vx, vy}, x, y) == pixel)
                    return {vx, vy};
        ADD_FAILURE() << "no view pixel shows " << pixel.x << ", " << pixel.y;
        return {};
    }

    // As if the mouse had done this in the view.
    void press(View* view, QPoint position, Qt::MouseButton button = Qt::LeftButton) {
        QMouseEvent event(QEvent::MouseButtonPress, position, button, button, Qt::NoModifier);
        QCoreApplication::sendEvent(view, &event);
    }
    void move(View* view, QPoint position) {
        QMouseEvent event(QEvent::MouseMove, position, Qt::NoButton, Qt::LeftButton,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(view, &event);
    }
    void release(View* view, QPoint position, Qt::MouseButton button = Qt::LeftButton) {
        QMouseEvent event(QEvent::MouseButtonRelease, position, button, Qt::NoButton,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(view, &event);
    }
};

TEST_F(WindowMeasure, ClickShowsThePointInWholeMillimetresAndMarksIt) {
    startWithOneFrame();
    const Size2_<int> pixel = app::imagePixel({100, 80}, MainWindowAccess::ratioX(*window),
                                              MainWindowAccess::ratioY(*window));
    press(image(), {100, 80});
    release(image(), {100, 80});
    handleEvents();
    const std::string x = std::to_string(pixel.x);
    const std::string y = std::to_string(pixel.y);
    EXPECT_EQ(text("labelInfo"),
              "Distance [x,y,z] at (" + x + ", " + y + ") = [" + x + ", " + y + ", 1000] mm");
    EXPECT_EQ(MainWindowAccess::pressed(*window), pixel);
    EXPECT_EQ(MainWindowAccess::released(*window), pixel);
    const Size3_<float> point = MainWindowAccess::releasedXyz(*window);
    EXPECT_EQ(point.x, static_cast<float>(pixel.x));
    EXPECT_EQ(point.y, static_cast<float>(pixel.y));
    EXPECT_EQ(point.z, 1000.0f);
    EXPECT_THAT(measurementLines(*cloud()),
                ElementsAre(Line{{0, 0, 0}, point}, Line{{0, 0, 0}, {0, 0, 0}},
                            Line{{0, 0, 0}, {0, 0, 0}}, Line{{0, 0, 0}, {0, 0, 0}}));
    EXPECT_THAT(log.lines(), ElementsAre("default: pressed image x: " + x + ", y: " + y,
                                         "default: released image x: " + x + ", y: " + y));
}

TEST_F(WindowMeasure, BothViewsMarkTheSameImagePixel) {
    startWithOneFrame();
    struct Row {
        View* source;
        View* other;
        const char* name;
    };
    for (const Row& row : {Row{image(), depth(), "image"}, {depth(), image(), "depth"}}) {
        log.clear();
        press(row.source, {30, 20});
        const Size2_<int> pressed = MainWindowAccess::pressed(*window);
        EXPECT_EQ(row.source->getPressed(), pressed);
        EXPECT_EQ(row.other->getPressed(), pressed);
        move(row.source, {50, 60});
        const Size2_<int> moved = MainWindowAccess::released(*window);
        EXPECT_NE(moved, pressed);
        EXPECT_EQ(row.source->getReleased(), moved);
        EXPECT_EQ(row.other->getReleased(), moved);
        release(row.source, {70, 90});
        const Size2_<int> released = MainWindowAccess::released(*window);
        EXPECT_NE(released, moved);
        EXPECT_EQ(row.source->getReleased(), released);
        EXPECT_EQ(row.other->getReleased(), released);
        const auto line = [&](const char* what, Size2_<int> p) {
            return "default: " + std::string(what) + " " + row.name + " x: " + std::to_string(p.x) +
                   ", y: " + std::to_string(p.y);
        };
        EXPECT_THAT(log.lines(), ElementsAre(line("pressed", pressed), line("moved", moved),
                                             line("released", released)));
    }
}

TEST_F(WindowMeasure, DragShowsTheDistanceWithTwoDecimalsAndFollowsTheMouse) {
    startWithOneFrame();
    press(depth(), at({10, 20}));
    move(depth(), at({13, 24}));
    handleEvents();
    EXPECT_EQ(text("labelInfo"), "Distance between (10, 20), (13, 24) : 5.00 mm");
    move(depth(), at({11, 21}));
    handleEvents();
    EXPECT_EQ(text("labelInfo"), "Distance between (10, 20), (11, 21) : 1.41 mm");
    release(depth(), at({40, 60}));
    handleEvents();
    EXPECT_EQ(text("labelInfo"), "Distance between (10, 20), (40, 60) : 50.00 mm");
    const Size3_<float> a{10, 20, 1000};
    const Size3_<float> b{40, 60, 1000};
    EXPECT_THAT(measurementLines(*cloud()),
                ElementsAre(Line{{0, 0, 0}, {0, 0, 0}}, Line{{0, 0, 0}, a}, Line{a, b},
                            Line{b, {0, 0, 0}}));
}

TEST_F(WindowMeasure, BeforeAnyReleaseTheLabelIsEmptyAndNothingIsMarked) {
    startWithOneFrame();
    EXPECT_EQ(text("labelInfo"), "");
    press(image(), {30, 40});
    handleEvents();
    EXPECT_EQ(text("labelInfo"), "");
    const Line none{{0, 0, 0}, {0, 0, 0}};
    EXPECT_THAT(measurementLines(*cloud()), ElementsAre(none, none, none, none));
}

TEST_F(WindowMeasure, PixelWithoutDepthShowsWhatTheCloudHolds) {
    CameraScript script = smallCamera();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    script.point = [nan](int x, int) {
        return x % 2 ? Size3_<float>{nan, nan, nan} : Size3_<float>{0, 0, 0};
    };
    startWithOneFrame(script);
    press(image(), at({3, 4}));
    release(image(), at({3, 4}));
    handleEvents();
    EXPECT_EQ(text("labelInfo"), "Distance [x,y,z] at (3, 4) = [nan, nan, nan] mm");
    press(image(), at({4, 4}));
    release(image(), at({4, 4}));
    handleEvents();
    EXPECT_EQ(text("labelInfo"), "Distance [x,y,z] at (4, 4) = [0, 0, 0] mm");
}

TEST_F(WindowMeasure, MeasurementFollowsTheFrames) {
    startWithOneFrame();
    press(image(), at({3, 4}));
    release(image(), at({3, 4}));
    handleEvents();
    camera.script().point = [](int, int) { return Size3_<float>{1, 2, 3}; };
    camera.scriptGrabs({RESULT_OK});
    EXPECT_TRUE(
        waitFor([&] { return text("labelInfo") == "Distance [x,y,z] at (3, 4) = [1, 2, 3] mm"; }));
}

TEST_F(WindowMeasure, PressDoesNotResetTheReleasedPoint) {
    startWithOneFrame();
    press(image(), at({3, 4}));
    release(image(), at({3, 4}));
    press(image(), at({6, 8}));
    handleEvents();
    // The window measures on to the old point until the mouse moves; the view shows none.
    EXPECT_EQ(MainWindowAccess::released(*window), (Size2_<int>{3, 4}));
    EXPECT_EQ(text("labelInfo"), "Distance between (6, 8), (3, 4) : 5.00 mm");
    EXPECT_EQ(image()->getReleased(), app::kNoPoint);
}

TEST_F(WindowMeasure, RightClickClearsTheMeasurement) {
    startWithOneFrame();
    press(image(), at({3, 4}));
    release(image(), at({3, 4}));
    press(image(), {5, 5}, Qt::RightButton);
    release(image(), {5, 5}, Qt::RightButton);
    handleEvents();
    EXPECT_EQ(MainWindowAccess::pressed(*window), app::kNoPoint);
    EXPECT_EQ(MainWindowAccess::released(*window), app::kNoPoint);
    EXPECT_EQ(text("labelInfo"), "");
    const Line none{{0, 0, 0}, {0, 0, 0}};
    EXPECT_THAT(measurementLines(*cloud()), ElementsAre(none, none, none, none));
}

TEST_F(WindowMeasure, PointsOutsideTheImageChangeNothingOnTheScreen) {
    startWithOneFrame();
    press(image(), at({3, 4}));
    release(image(), at({3, 4}));
    handleEvents();
    const std::string shown = text("labelInfo");
    const auto lines = measurementLines(*cloud());
    press(image(), at({3, 4}));
    for (const QPoint outside :
         {QPoint(-50, 10), QPoint(10, -50), QPoint(100000, 10), QPoint(10, 100000)}) {
        move(image(), outside);
        handleEvents();
        EXPECT_EQ(text("labelInfo"), shown);
        EXPECT_EQ(measurementLines(*cloud()), lines);
    }
    // Nor does a pressed point outside.
    press(image(), {-40, -40});
    move(image(), at({7, 7}));
    handleEvents();
    EXPECT_EQ(text("labelInfo"), shown);
    EXPECT_EQ(measurementLines(*cloud()), lines);
}

TEST_F(WindowMeasure, PointsOfAnEarlierLargerImageAreNotRead) {
    CameraScript script = smallCamera();
    script.size = {200, 150, 30};
    startWithOneFrame(script);
    press(image(), at({20, 140}));
    release(image(), at({20, 140}));
    handleEvents();
    const std::string shown = text("labelInfo");
    EXPECT_EQ(shown, "Distance [x,y,z] at (20, 140) = [20, 140, 1000] mm");
    click("btnStop");
    camera.script().size = {160, 100, 30};
    camera.scriptGrabs({RESULT_OK});
    click("btnStart");
    ASSERT_TRUE(waitFor([&] { return camera.framesDelivered() == 1; }));
    runFor(10);
    EXPECT_EQ(text("labelInfo"), shown);
}

TEST_F(WindowMeasure, NothingIsReadBeforeTheFirstFrameNorAfterStop) {
    startWithOneFrame();
    press(image(), at({3, 4}));
    release(image(), at({3, 4}));
    handleEvents();
    click("btnStop");
    press(image(), {30, 30});
    release(image(), {30, 30});
    handleEvents();
    EXPECT_EQ(text("labelInfo"), "Distance [x,y,z] at (3, 4) = [3, 4, 1000] mm");
    camera.scriptGrabs({});
    click("btnStart");
    press(image(), {30, 30});
    release(image(), {30, 30});
    handleEvents();
    EXPECT_EQ(text("labelInfo"), "Distance [x,y,z] at (3, 4) = [3, 4, 1000] mm");
}

TEST_F(WindowMeasure, MouseWhileIdleGivesNoPoint) {
    makeWindow(cameras({kR0}));
    window->show();
    handleEvents();
    press(image(), {30, 30});
    release(image(), {31, 31});
    handleEvents();
    // Without an image the scale is infinite.
    EXPECT_EQ(MainWindowAccess::released(*window), app::kNoPoint);
    EXPECT_EQ(text("labelInfo"), "");
}

}  // namespace
}  // namespace kova::test
