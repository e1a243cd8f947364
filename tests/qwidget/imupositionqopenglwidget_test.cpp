#include "qwidget/imupositionqopenglwidget.h"

#include <gtest/gtest.h>

#include "tests/qwidget/expected_calls.h"
#include "tests/support/support_double.h"

namespace kova::qwidget {
namespace {

using test::append;
using test::CallLog;
using test::Calls;
using test::callText;
using test::cameraCalls;
using test::clearCalls;
using test::lineCalls;
using test::sameCalls;
using Point = Size3_<float>;

constexpr const char* kIdentity = "[1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1]";

class View : public IMUPositionQOpenGLWidget {
public:
    using IMUPositionQOpenGLWidget::initializeGL;
    using IMUPositionQOpenGLWidget::paintGL;
    using IMUPositionQOpenGLWidget::resizeGL;
};

class IMUPositionView : public testing::Test {
protected:
    IMUPositionView() {
        test::resetGlDouble();
        view.resize(640, 480);
    }
    static Calls take() { return CallLog::instance().take(); }
    Calls paint() {
        take();
        view.paintGL();
        return take();
    }
    void hideAll() {
        view.set_show_axes(false);
        view.set_show_grid_plane(false);
        view.set_show_module(false);
    }

    View view;
};

Calls sceneCalls(int width = 640, int height = 480) {
    Calls calls = clearCalls();
    append(calls, cameraCalls(1000, width, height));
    append(calls, {callText("glDisable", GL_LIGHT0), callText("glDisable", GL_LIGHTING)});
    return calls;
}

Calls gridCalls() {
    const Point dark{13.0f / 255, 17.0f / 255, 20.0f / 255};
    const Point light{213.0f / 255, 207.0f / 255, 200.0f / 255};
    Calls calls;
    for (int i = -25; i <= 25; ++i) {
        const float x = static_cast<float>(i) * 400;
        append(calls, lineCalls(Point{x, 1000, -10000}, {x, 1000, 10000}, 1, dark, light));
        const auto g = static_cast<float>((i + 2500) / 5000.0);
        append(calls, lineCalls(Point{-10000, 1000, x}, {10000, 1000, x}, 1, {g, g, g}, {g, g, g}));
    }
    return calls;
}

Calls moduleCalls(const char* rotation = kIdentity, const Point& shift = {0, 0, 0}) {
    Calls calls{"glPushMatrix()",
                callText("glEnable", GL_CULL_FACE),
                callText("glMultMatrixf", rotation),
                callText("glTranslatef", shift.x, shift.y, shift.z),
                callText("glEnable", GL_LIGHT0),
                callText("glEnable", GL_LIGHTING)};
    append(calls, test::bodyCalls());
    calls.push_back("glPopMatrix()");
    return calls;
}

// A red arrow from the origin, turned by the given angle about the given axis.
Calls arrowCalls(const Point& end, double degrees, double ax, double ay, double az) {
    const Point red{1, 0, 0};
    Calls calls = lineCalls(Point{0, 0, 0}, end, 5, red, red);
    const auto back = static_cast<float>(-15 * 0.955336489125606);
    const auto side = static_cast<float>(15 * 0.29552020666133955);
    append(
        calls,
        {callText("glTranslatef", end.x, end.y, end.z), callText("glRotated", degrees, ax, ay, az),
         "glLineWidth(5)", callText("glBegin", GL_TRIANGLE_FAN), "glColor3f(1, 0, 0)",
         "glVertex3f(0, 0, 0)", "glColor3f(1, 0, 0)", callText("glVertex3f", back, side, 0),
         callText("glVertex3f", back, 0, side), callText("glVertex3f", back, -side, 0),
         callText("glVertex3f", back, 0, -side), callText("glVertex3f", back, side, 0), "glEnd()",
         callText("glRotated", degrees, -ax, -ay, -az),
         callText("glTranslatef", -end.x, -end.y, -end.z)});
    return calls;
}

Calls noArrow() {
    return arrowCalls({0, 0, 0}, 0, 1, 0, 0);
}

TEST_F(IMUPositionView, BeforeInitResourceOnlyClearsToBlack) {
    EXPECT_TRUE(sameCalls(paint(), clearCalls()));
    view.initializeGL();
    EXPECT_TRUE(sameCalls(paint(), clearCalls()));
    EXPECT_EQ(view.focusPolicy(), Qt::StrongFocus);
}

TEST_F(IMUPositionView, InitializeSetsLightsAndLoadsTheBody) {
    view.initializeGL();
    EXPECT_TRUE(sameCalls(take(), test::litSceneCalls()));
}

TEST_F(IMUPositionView, InitResourceCreatesTheCamera) {
    view.initResource(1280, 720);
    EXPECT_TRUE(
        sameCalls(take(), {callText("glEnable", 0x140A), callText("glEnable", GL_TEXTURE_2D)}));
}

TEST_F(IMUPositionView, PaintsEverythingInOrder) {
    view.initializeGL();
    view.initResource(1280, 720);
    view.set_focal_length(1, 2);
    Calls expected = sceneCalls();
    append(expected, test::axesCalls());
    append(expected, gridCalls());
    append(expected, moduleCalls());
    append(expected, noArrow());
    EXPECT_TRUE(sameCalls(paint(), expected));
    EXPECT_TRUE(sameCalls(paint(), expected));
}

TEST_F(IMUPositionView, EachPartIsShownByItsFlag) {
    view.initializeGL();
    view.initResource(1280, 720);
    hideAll();
    Calls expected = sceneCalls();
    append(expected, noArrow());
    EXPECT_TRUE(sameCalls(paint(), expected));

    view.set_show_axes(true);
    expected = sceneCalls();
    append(expected, test::axesCalls());
    append(expected, noArrow());
    EXPECT_TRUE(sameCalls(paint(), expected));
    view.set_show_axes(false);

    view.set_show_grid_plane(true);
    expected = sceneCalls();
    append(expected, gridCalls());
    append(expected, noArrow());
    EXPECT_TRUE(sameCalls(paint(), expected));
}

TEST_F(IMUPositionView, NorthAxisOfNoneStillDrawsAZeroLengthArrow) {
    view.initResource(1280, 720);
    hideAll();
    view.set_north_axis(NORTH_AXIS_Y_POSITIVE);
    view.set_north_axis(static_cast<NorthAxisDirection>(-1));
    Calls expected = sceneCalls();
    append(expected, noArrow());
    EXPECT_TRUE(sameCalls(paint(), expected));
}

TEST_F(IMUPositionView, NorthAxisFollowsTheTable) {
    view.initResource(1280, 720);
    hideAll();
    struct {
        int value;
        Point end;
        double degrees, ax, ay, az;
    } rows[] = {
        {0, {50, 0, 0}, 0, 1, 0, 0},   {1, {-50, 0, 0}, 180, 1, 0, 0},
        {2, {0, 50, 0}, 90, 0, 0, 1},  {3, {0, -50, 0}, 90, 0, 0, -1},
        {4, {0, 0, 50}, 90, 0, -1, 0}, {5, {0, 0, -50}, 90, 0, 1, 0},
        {-1, {0, 0, 0}, 0, 1, 0, 0},
    };
    for (const auto& row : rows) {
        view.set_north_axis(static_cast<NorthAxisDirection>(row.value));
        Calls expected = sceneCalls();
        append(expected, arrowCalls(row.end, row.degrees, row.ax, row.ay, row.az));
        EXPECT_TRUE(sameCalls(paint(), expected)) << row.value;
    }
    // Any other value leaves it unchanged.
    view.set_north_axis(NORTH_AXIS_Z_NEGATIVE);
    for (const int value : {6, -2, 1000}) {
        view.set_north_axis(static_cast<NorthAxisDirection>(value));
        Calls expected = sceneCalls();
        append(expected, arrowCalls({0, 0, -50}, 90, 0, 1, 0));
        EXPECT_TRUE(sameCalls(paint(), expected)) << value;
    }
}

// Whether lighting is on when the arrow is drawn.
bool arrowIsLit(const Calls& calls) {
    bool lit = true;
    for (const std::string& call : calls) {
        if (call == callText("glEnable", GL_LIGHTING))
            lit = true;
        else if (call == callText("glDisable", GL_LIGHTING))
            lit = false;
        else if (call == callText("glBegin", GL_TRIANGLE_FAN))
            return lit;
    }
    ADD_FAILURE() << "no arrow";
    return lit;
}

TEST_F(IMUPositionView, HidingTheModuleLeavesTheArrowUnlitAndShowingItLightsTheArrow) {
    view.initializeGL();
    view.initResource(1280, 720);
    view.set_show_module(false);
    EXPECT_FALSE(arrowIsLit(paint()));
    view.set_show_module(true);
    EXPECT_TRUE(arrowIsLit(paint()));
}

TEST_F(IMUPositionView, GridLinesAlongXAreTheSameMidGreyWithin0005) {
    view.initResource(1280, 720);
    hideAll();
    view.set_show_grid_plane(true);
    const Calls calls = paint();
    int seen = 0;
    // Of each step: seven calls for the line along z, then seven for the one along x.
    for (std::size_t i = sceneCalls().size(); i + 14 <= calls.size() && seen < 51; i += 14) {
        for (const std::size_t at : {i + 9, i + 11}) {
            float r = 0, g = 0, b = 0;
            ASSERT_EQ(std::sscanf(calls[at].c_str(), "glColor3f(%f, %f, %f)", &r, &g, &b), 3);
            EXPECT_EQ(r, g);
            EXPECT_EQ(g, b);
            EXPECT_NEAR(g, 0.5f, 0.005f + 1e-7f);
        }
        ++seen;
    }
    EXPECT_EQ(seen, 51);
}

TEST_F(IMUPositionView, OnlyTheModuleFollowsTheAttitude) {
    view.initializeGL();
    view.initResource(1280, 720);
    float half_turn_about_x[4] = {1, 0, 0, 0};
    view.set_quaternion(half_turn_about_x);
    view.set_imu_translation({4, 5, 6});
    Calls expected = sceneCalls();
    append(expected, test::axesCalls());
    append(expected, gridCalls());
    append(expected, moduleCalls("[1 0 0 0 0 -1 0 0 0 0 -1 0 0 0 0 1]", {4, 5, 6}));
    append(expected, noArrow());
    EXPECT_TRUE(sameCalls(paint(), expected));
}

TEST_F(IMUPositionView, ResizeFitsTheProjection) {
    view.initResource(1280, 720);
    hideAll();
    view.resizeGL(900, 300);
    Calls expected = sceneCalls(900, 300);
    append(expected, noArrow());
    EXPECT_TRUE(sameCalls(paint(), expected));
}

}  // namespace
}  // namespace kova::qwidget
