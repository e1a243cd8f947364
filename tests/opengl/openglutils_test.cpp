#include "opengl/openglutils.h"

#include <GL/gl.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "tests/support/gl_double.h"

namespace kova {
namespace {

using test::CallLog;
using test::callText;
using test::sameCalls;
using Calls = std::vector<std::string>;
using Point2 = Size2_<float>;
using Point3 = Size3_<float>;

constexpr Point3 kC1{0.1f, 0.2f, 0.3f};
constexpr Point3 kC2{0.4f, 0.5f, 0.6f};

class OpenGLUtilsTest : public testing::Test {
protected:
    void SetUp() override { test::resetGlDouble(); }
    static Calls take() { return CallLog::instance().take(); }
};

void append(Calls& calls, const Calls& more) {
    calls.insert(calls.end(), more.begin(), more.end());
}

std::string colour(const Point3& c) {
    return callText("glColor3f", c.x, c.y, c.z);
}
std::string vertex(const Point3& p) {
    return callText("glVertex3f", p.x, p.y, p.z);
}
std::string vertex(const Point2& p) {
    return callText("glVertex2f", p.x, p.y);
}

template <typename Point>
Calls line(const Point& a, const Point& b, float lw, const Point3& c1, const Point3& c2) {
    return {callText("glLineWidth", lw),
            callText("glBegin", GL_LINES),
            colour(c1),
            vertex(a),
            colour(c2),
            vertex(b),
            "glEnd()"};
}

Calls loop(const std::vector<Point3>& corners, float lw, const Point3& c) {
    Calls calls;
    for (std::size_t i = 0; i < corners.size(); ++i)
        append(calls, line(corners[i], corners[(i + 1) % corners.size()], lw, c, c));
    return calls;
}

TEST_F(OpenGLUtilsTest, ClearSetsTheClearColourAfterTheClear) {
    OpenGLUtils::clear(0.1f, 0.2f, 0.3f, 0.4f);
    EXPECT_TRUE(sameCalls(take(), {callText("glDrawBuffer", GL_BACK), "glLoadIdentity()",
                                   callText("glClear", GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT),
                                   callText("glClearColor", 0.1f, 0.2f, 0.3f, 0.4f)}));
}

TEST_F(OpenGLUtilsTest, LinesHaveAColourAtEachEnd) {
    OpenGLUtils::drawLine_2d({1, 2}, {3, 4}, 1.5f, kC1, kC2);
    EXPECT_TRUE(sameCalls(take(), line(Point2{1, 2}, Point2{3, 4}, 1.5f, kC1, kC2)));
    OpenGLUtils::drawLine_3d({1, 2, 3}, {4, 5, 6}, 2.5f, kC1, kC2);
    EXPECT_TRUE(sameCalls(take(), line(Point3{1, 2, 3}, Point3{4, 5, 6}, 2.5f, kC1, kC2)));
}

TEST_F(OpenGLUtilsTest, PlaneIsTheClosedOutlineOfFourCorners) {
    Point3 corners[4] = {{0, 0, 1}, {0, 1, 1}, {1, 1, 1}, {1, 0, 1}};
    OpenGLUtils::drawPlane_3d(corners, 2, kC1);
    EXPECT_TRUE(sameCalls(take(), loop({corners[0], corners[1], corners[2], corners[3]}, 2, kC1)));
    OpenGLUtils::drawPlane_3d(nullptr, 2, kC1);
    EXPECT_TRUE(take().empty());
}

Calls frustum(const std::vector<Point3>& near_corners, const std::vector<Point3>& far_corners) {
    Calls calls = loop(near_corners, 3, kC1);
    append(calls, loop(far_corners, 3, kC2));
    for (const Point3& corner : far_corners)
        append(calls, line(Point3{0, 0, 0}, corner, 3, kC1, kC2));
    return calls;
}

TEST_F(OpenGLUtilsTest, FovPutsNearCornersAt01And008AndFarCornersAt5And4) {
    OpenGLUtils::drawFOV_3d(500, 500, 0.1f, 5, 1000, 800, 3, kC1, kC2);
    const float x = 0.1f * 1.0f;
    const float y = 0.1f * 0.8f;
    EXPECT_FLOAT_EQ(y, 0.08f);
    EXPECT_TRUE(
        sameCalls(take(), frustum({{-x, -y, 0.1f}, {-x, y, 0.1f}, {x, y, 0.1f}, {x, -y, 0.1f}},
                                  {{-5, -4, 5}, {-5, 4, 5}, {5, 4, 5}, {5, -4, 5}})));
}

TEST_F(OpenGLUtilsTest, FovWithoutFocalLengthIssuesTheSameBatchesAtTheOrigin) {
    const std::vector<Point3> origin(4);
    for (const Point2 f : {Point2{0, 500}, Point2{500, 0}, Point2{-1, 500}, Point2{500, -1}}) {
        OpenGLUtils::drawFOV_3d(f.x, f.y, 0.1f, 5, 1000, 800, 3, kC1, kC2);
        EXPECT_TRUE(sameCalls(take(), frustum(origin, origin)));
    }
}

TEST_F(OpenGLUtilsTest, CameraBoxSpansXFromMinus004To016) {
    OpenGLUtils::drawCamera_3d(0.2f, 0.12f, 0.05f, 0.03f, 2, kC1);
    const float x0 = (0.12f - 0.2f) / 2;
    const float x1 = (0.12f + 0.2f) / 2;
    EXPECT_FLOAT_EQ(x0, -0.04f);
    EXPECT_FLOAT_EQ(x1, 0.16f);
    const float h = 0.025f;
    const float d = 0.015f;
    const std::vector<Point3> front{{x0, -h, d}, {x0, h, d}, {x1, h, d}, {x1, -h, d}};
    const std::vector<Point3> back{{x0, -h, -d}, {x0, h, -d}, {x1, h, -d}, {x1, -h, -d}};
    Calls expected = loop(front, 2, kC1);
    append(expected, loop(back, 2, kC1));
    for (std::size_t i = 0; i < 4; ++i) append(expected, line(front[i], back[i], 2, kC1, kC1));
    EXPECT_TRUE(sameCalls(take(), expected));
}

TEST_F(OpenGLUtilsTest, AxesAreThreeSegmentsFromTheOrigin) {
    const Point3 kC3{0.7f, 0.8f, 0.9f};
    OpenGLUtils::drawAxes_3d(50, 1, kC1, kC2, kC3);
    Calls expected = line(Point3{0, 0, 0}, Point3{50, 0, 0}, 1, kC1, kC1);
    append(expected, line(Point3{0, 0, 0}, Point3{0, 50, 0}, 1, kC2, kC2));
    append(expected, line(Point3{0, 0, 0}, Point3{0, 0, 50}, 1, kC3, kC3));
    EXPECT_TRUE(sameCalls(take(), expected));
}

TEST_F(OpenGLUtilsTest, PolyWithTwoPointsIssuesNoCallAtAll) {
    OpenGLUtils::drawPoly_2d({{0, 0}, {1, 1}}, 2, kC1);
    OpenGLUtils::drawPoly_3d({{0, 0, 0}, {1, 1, 1}}, 2, kC1);
    OpenGLUtils::drawPoly_2d({}, 2, kC1);
    OpenGLUtils::drawPoly_3d({}, 2, kC1);
    EXPECT_TRUE(take().empty());
}

TEST_F(OpenGLUtilsTest, PolyIsFilledThroughThePointsInOrder) {
    OpenGLUtils::drawPoly_2d({{0, 0}, {1, 0}, {0, 1}}, 2, kC1);
    EXPECT_TRUE(
        sameCalls(take(), {"glLineWidth(2)", callText("glBegin", GL_POLYGON), colour(kC1),
                           "glVertex2f(0, 0)", "glVertex2f(1, 0)", "glVertex2f(0, 1)", "glEnd()"}));
    OpenGLUtils::drawPoly_3d({{0, 0, 5}, {1, 0, 5}, {0, 1, 5}}, 2, kC1);
    EXPECT_TRUE(sameCalls(
        take(), {"glLineWidth(2)", callText("glBegin", GL_POLYGON), colour(kC1),
                 "glVertex3f(0, 0, 5)", "glVertex3f(1, 0, 5)", "glVertex3f(0, 1, 5)", "glEnd()"}));
}

TEST_F(OpenGLUtilsTest, Arrow2dHasAHeadOf03RadToEachSide) {
    OpenGLUtils::drawArrow_2d({0, 0}, {3, 4}, 2, 5, kC1, kC2);
    Calls expected = line(Point2{0, 0}, Point2{3, 4}, 5, kC1, kC2);
    const double a = std::atan2(-4.0, -3.0);
    append(expected, {"glLineWidth(5)", callText("glBegin", GL_TRIANGLES), colour(kC1),
                      callText("glVertex2f", static_cast<float>(3 + 2 * std::cos(a + 0.3)),
                               static_cast<float>(4 + 2 * std::sin(a + 0.3))),
                      callText("glVertex2f", static_cast<float>(3 + 2 * std::cos(a - 0.3)),
                               static_cast<float>(4 + 2 * std::sin(a - 0.3))),
                      colour(kC2), "glVertex2f(3, 4)", "glEnd()"});
    EXPECT_TRUE(sameCalls(take(), expected));
}

Calls arrow(const Point3& start, const Point3& end, float length, double degrees, double ax,
            double ay, double az) {
    Calls calls = line(start, end, 5, kC1, kC2);
    const auto back = static_cast<float>(-length * 0.955336489125606);
    const auto side = static_cast<float>(length * 0.29552020666133955);
    append(calls, {callText("glTranslatef", end.x, end.y, end.z),
                   callText("glRotated", degrees, ax, ay, az), "glLineWidth(5)",
                   callText("glBegin", GL_TRIANGLE_FAN), colour(kC2), "glVertex3f(0, 0, 0)",
                   colour(kC1), callText("glVertex3f", back, side, 0),
                   callText("glVertex3f", back, 0, side), callText("glVertex3f", back, -side, 0),
                   callText("glVertex3f", back, 0, -side), callText("glVertex3f", back, side, 0),
                   "glEnd()", callText("glRotated", degrees, -ax, -ay, -az),
                   callText("glTranslatef", -end.x, -end.y, -end.z)});
    return calls;
}

TEST_F(OpenGLUtilsTest, Arrow3dAlongPlusXUsesTheFallbackAxisAndZeroDegrees) {
    OpenGLUtils::drawArrow_3d({0, 0, 0}, {2, 0, 0}, 0.5f, 5, kC1, kC2);
    EXPECT_TRUE(sameCalls(take(), arrow({0, 0, 0}, {2, 0, 0}, 0.5f, 0, 1, 0, 0)));
}

TEST_F(OpenGLUtilsTest, Arrow3dAlongMinusXTurns180DegreesAboutTheFallbackAxis) {
    OpenGLUtils::drawArrow_3d({0, 0, 0}, {-2, 0, 0}, 0.5f, 5, kC1, kC2);
    EXPECT_TRUE(sameCalls(take(), arrow({0, 0, 0}, {-2, 0, 0}, 0.5f, 180, 1, 0, 0)));
}

TEST_F(OpenGLUtilsTest, Arrow3dTurnsAboutTheAxisAcrossXAndTheShaft) {
    OpenGLUtils::drawArrow_3d({1, 1, 1}, {1, 3, 1}, 0.5f, 5, kC1, kC2);
    EXPECT_TRUE(sameCalls(take(), arrow({1, 1, 1}, {1, 3, 1}, 0.5f, 90, 0, 0, 1)));
    OpenGLUtils::drawArrow_3d({0, 0, 0}, {0, 0, -7}, 0.5f, 5, kC1, kC2);
    EXPECT_TRUE(sameCalls(take(), arrow({0, 0, 0}, {0, 0, -7}, 0.5f, 90, 0, 1, 0)));
    OpenGLUtils::drawArrow_3d({0, 0, 0}, {2, 3, 6}, 0.5f, 5, kC1, kC2);
    const double across = std::sqrt(45.0);
    EXPECT_TRUE(
        sameCalls(take(), arrow({0, 0, 0}, {2, 3, 6}, 0.5f, std::acos(2.0 / 7.0) * 180 / M_PI, 0,
                                -6 / across, 3 / across)));
}

TEST_F(OpenGLUtilsTest, Arrow3dWithoutLengthKeepsItsHeadAlongX) {
    OpenGLUtils::drawArrow_3d({1, 2, 3}, {1, 2, 3}, 0.5f, 5, kC1, kC2);
    EXPECT_TRUE(sameCalls(take(), arrow({1, 2, 3}, {1, 2, 3}, 0.5f, 0, 1, 0, 0)));
}

TEST_F(OpenGLUtilsTest, StippleOffDoesNotTouchThePattern) {
    OpenGLUtils::enableStipple(false, 0x0F0F);
    EXPECT_TRUE(sameCalls(take(), {callText("glDisable", GL_LINE_STIPPLE)}));
    OpenGLUtils::enableStipple(true, 0x0F0F);
    EXPECT_TRUE(sameCalls(
        take(), {callText("glEnable", GL_LINE_STIPPLE), callText("glLineStipple", 1, 0x0F0F)}));
}

TEST_F(OpenGLUtilsTest, PointsAreOneBatchAlsoWhenThereAreNone) {
    const std::string begin = callText("glBegin", GL_POINTS);
    OpenGLUtils::drawPoint_2d({1, 2}, 4, kC1);
    EXPECT_TRUE(
        sameCalls(take(), {"glPointSize(4)", begin, colour(kC1), "glVertex2f(1, 2)", "glEnd()"}));
    OpenGLUtils::drawPoint_3d({1, 2, 3}, 4, kC1);
    EXPECT_TRUE(sameCalls(
        take(), {"glPointSize(4)", begin, colour(kC1), "glVertex3f(1, 2, 3)", "glEnd()"}));
    OpenGLUtils::drawPoints_2d({{1, 2}, {3, 4}}, 4, kC1);
    EXPECT_TRUE(sameCalls(take(), {"glPointSize(4)", begin, colour(kC1), "glVertex2f(1, 2)",
                                   "glVertex2f(3, 4)", "glEnd()"}));
    OpenGLUtils::drawPoints_3d({{1, 2, 3}, {3, 4, 5}}, 4, kC1);
    EXPECT_TRUE(sameCalls(take(), {"glPointSize(4)", begin, colour(kC1), "glVertex3f(1, 2, 3)",
                                   "glVertex3f(3, 4, 5)", "glEnd()"}));
    OpenGLUtils::drawPoints_2d({}, 4, kC1);
    EXPECT_TRUE(sameCalls(take(), {"glPointSize(4)", begin, colour(kC1), "glEnd()"}));
    OpenGLUtils::drawPoints_3d({}, 4, kC1);
    EXPECT_TRUE(sameCalls(take(), {"glPointSize(4)", begin, colour(kC1), "glEnd()"}));
}

const std::vector<Point3> kNormals{{0, 0, 1}, {0, 1, 0}};
const std::vector<Point3> kFirst{{0.1f, 0, 0}, {1, 1, 1}};
const std::vector<Point3> kSecond{{0, 0.1f, 0}, {2, 2, 2}};
const std::vector<Point3> kThird{{0, 0, 0.1f}, {3, 3, 3}};

Calls triangle(std::size_t i, float scale, bool named) {
    Calls calls{
        callText("glNormal3fv", std::vector<float>{kNormals[i].x, kNormals[i].y, kNormals[i].z})};
    if (named)
        calls.push_back(callText("glLoadName", i + 1));
    append(calls, {callText("glBegin", GL_TRIANGLES), colour(kC1)});
    for (const Point3& p : {kFirst[i], kSecond[i], kThird[i]})
        calls.push_back(vertex(Point3{p.x * scale, p.y * scale, p.z * scale}));
    calls.push_back("glEnd()");
    return calls;
}

TEST_F(OpenGLUtilsTest, StlModelWithScaleOneSendsTheCoordinatesUnchanged) {
    OpenGLUtils::drawStlModel(kNormals, kFirst, kSecond, kThird, 1, kC1, GL_RENDER);
    Calls expected = triangle(0, 1, false);
    append(expected, triangle(1, 1, false));
    EXPECT_TRUE(sameCalls(take(), expected));
    OpenGLUtils::drawStlModel(kNormals, kFirst, kSecond, kThird, 2.5f, kC1, GL_RENDER);
    expected = triangle(0, 2.5f, false);
    append(expected, triangle(1, 2.5f, false));
    EXPECT_TRUE(sameCalls(take(), expected));
}

TEST_F(OpenGLUtilsTest, StlModelLoadsNamesForSelectionOnly) {
    for (const unsigned int mode : {unsigned{GL_RENDER}, unsigned{GL_FEEDBACK}, 0u}) {
        OpenGLUtils::drawStlModel(kNormals, kFirst, kSecond, kThird, 1, kC1, mode);
        EXPECT_EQ(test::countCalls(take(), "glLoadName"), 0);
    }
    OpenGLUtils::drawStlModel(kNormals, kFirst, kSecond, kThird, 1, kC1, GL_SELECT);
    Calls expected = triangle(0, 1, true);
    append(expected, triangle(1, 1, true));
    EXPECT_TRUE(sameCalls(take(), expected));
}

TEST_F(OpenGLUtilsTest, StlModelWithAMissingCornerThrowsAfterTheTrianglesBefore) {
    const std::vector<Point3> one{{4, 4, 4}};
    try {
        OpenGLUtils::drawStlModel(kNormals, kFirst, one, kThird, 1, kC1, GL_RENDER);
        FAIL() << "no error";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(),
                     "vector::_M_range_check: __n (which is 1) >= this->size() (which is 1)");
    }
    const Calls calls = take();
    EXPECT_EQ(test::countCalls(calls, "glBegin"), 1);
    EXPECT_EQ(test::countCalls(calls, "glEnd"), 1);
}

const std::vector<Size4_<unsigned char>> kRgba{
    {1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}, {13, 14, 15, 255}};
const std::vector<Point3> kVertices{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};

TEST_F(OpenGLUtilsTest, PlyModelDrawsFacesWithTheColoursOfTheirVertices) {
    OpenGLUtils::drawPlyModel(kVertices, kRgba, {{0, 1, 2}, {3, 2, 1}}, 2, GL_RENDER);
    EXPECT_TRUE(sameCalls(
        take(),
        {callText("glBegin", GL_TRIANGLES), "glColor4ub(1, 2, 3, 4)", "glVertex3f(0, 0, 0)",
         "glColor4ub(5, 6, 7, 8)", "glVertex3f(2, 0, 0)", "glColor4ub(9, 10, 11, 12)",
         "glVertex3f(0, 2, 0)", "glEnd()", callText("glBegin", GL_TRIANGLES),
         "glColor4ub(13, 14, 15, 255)", "glVertex3f(0, 0, 2)", "glColor4ub(9, 10, 11, 12)",
         "glVertex3f(0, 2, 0)", "glColor4ub(5, 6, 7, 8)", "glVertex3f(2, 0, 0)", "glEnd()"}));
}

TEST_F(OpenGLUtilsTest, PlyModelWithoutColoursKeepsTheCurrentOne) {
    OpenGLUtils::drawPlyModel(kVertices, {}, {{0, 1, 2}}, 1, GL_SELECT);
    EXPECT_TRUE(sameCalls(
        take(), {"glLoadName(1)", callText("glBegin", GL_TRIANGLES), "glVertex3f(0, 0, 0)",
                 "glVertex3f(1, 0, 0)", "glVertex3f(0, 1, 0)", "glEnd()"}));
}

TEST_F(OpenGLUtilsTest, PlyModelWithoutFacesDrawsEveryVertexAsPoint) {
    OpenGLUtils::drawPlyModel({{1, 2, 3}, {4, 5, 6}}, {{1, 2, 3, 4}, {5, 6, 7, 8}}, {}, 1,
                              GL_SELECT);
    const std::string begin = callText("glBegin", GL_POINTS);
    EXPECT_TRUE(sameCalls(take(), {"glLoadName(1)", begin, "glColor4ub(1, 2, 3, 4)",
                                   "glVertex3f(1, 2, 3)", "glEnd()", "glLoadName(2)", begin,
                                   "glColor4ub(5, 6, 7, 8)", "glVertex3f(4, 5, 6)", "glEnd()"}));
    OpenGLUtils::drawPlyModel({{1, 2, 3}}, {}, {}, 3, GL_RENDER);
    EXPECT_TRUE(sameCalls(take(), {begin, "glVertex3f(3, 6, 9)", "glEnd()"}));
}

TEST_F(OpenGLUtilsTest, PlyModelRefusesIndicesOutOfRange) {
    for (const int bad : {4, -1, std::numeric_limits<int>::max()}) {
        EXPECT_THROW(
            OpenGLUtils::drawPlyModel(kVertices, {}, {{0, 1, 2}, {0, bad, 2}}, 1, GL_RENDER),
            std::out_of_range)
            << bad;
        EXPECT_EQ(test::countCalls(take(), "glEnd"), 1) << bad;
    }
    // A vertex without a colour.
    EXPECT_THROW(OpenGLUtils::drawPlyModel(kVertices, {kRgba[0]}, {{0, 1, 2}}, 1, GL_RENDER),
                 std::out_of_range);
    EXPECT_THROW(OpenGLUtils::drawPlyModel(kVertices, {kRgba[0]}, {}, 1, GL_RENDER),
                 std::out_of_range);
}

}  // namespace
}  // namespace kova
