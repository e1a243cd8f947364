#include "qwidget/pointcloudqopenglwidget.h"

#include <gtest/gtest.h>

#include <numeric>

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

constexpr unsigned int kArrayBuffer = 0x8892;
constexpr unsigned int kDynamicDraw = 0x88E8;
constexpr Point kOrigin{0, 0, 0};
constexpr Point kStart{0.8f, 0.2f, 0.0f};
constexpr Point kEnd{0.2f, 0.8f, 0.0f};
constexpr const char* kIdentity = "[1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1]";

class View : public PointCloudQOpenGLWidget {
public:
    using PointCloudQOpenGLWidget::initializeGL;
    using PointCloudQOpenGLWidget::paintGL;
    using PointCloudQOpenGLWidget::resizeGL;
};

class PointCloudView : public testing::Test {
protected:
    PointCloudView() {
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
        view.setShowPointCloud(false);
        view.setShowFov(false);
        view.setShowAxes(false);
        view.setShowCamera(false);
    }

    View view;
};

Calls sceneCalls(const char* rotation = kIdentity, const Point& shift = kOrigin, int width = 640,
                 int height = 480) {
    Calls calls = clearCalls();
    append(calls, cameraCalls(4000, width, height));
    append(calls,
           {callText("glDisable", GL_LIGHT0), callText("glDisable", GL_LIGHTING), "glPushMatrix()",
            callText("glEnable", GL_CULL_FACE), callText("glMultMatrixf", rotation),
            callText("glTranslatef", shift.x, shift.y, shift.z)});
    return calls;
}

Calls pointCalls(int points, int channels) {
    const int colour_bytes = points * channels;
    return {callText("glBindBuffer", kArrayBuffer, 1),
            callText("glBufferSubData", kArrayBuffer, 0, colour_bytes),
            callText("glBufferSubData", kArrayBuffer, colour_bytes, points * 12),
            callText("glEnableClientState", GL_VERTEX_ARRAY),
            callText("glEnableClientState", GL_COLOR_ARRAY),
            callText("glColorPointer", channels, GL_UNSIGNED_BYTE, 0, 0),
            callText("glVertexPointer", 3, GL_FLOAT, 0, colour_bytes),
            callText("glDrawArrays", GL_POINTS, 0, points),
            callText("glDisableClientState", GL_VERTEX_ARRAY),
            callText("glDisableClientState", GL_COLOR_ARRAY),
            callText("glBindBuffer", kArrayBuffer, 0)};
}

Calls measurementCalls(const Point& target, const Point& a, const Point& b) {
    Calls calls = lineCalls(kOrigin, target, 5, kStart, kEnd);
    append(calls, lineCalls(kOrigin, a, 5, kStart, kStart));
    append(calls, lineCalls(a, b, 5, kStart, kEnd));
    append(calls, lineCalls(b, kOrigin, 5, kEnd, kEnd));
    return calls;
}

Calls frustumCalls(float fx, float fy, float near_depth, float far_depth, int width, int height) {
    const Point colour{0.88f, 1, 1};
    const float kx = (static_cast<float>(width) * 0.5f) / fx;
    const float ky = (static_cast<float>(height) * 0.5f) / fy;
    Calls calls;
    for (const float d : {near_depth, far_depth}) {
        const Point corners[4] = {
            {-d * kx, -d * ky, d}, {-d * kx, d * ky, d}, {d * kx, d * ky, d}, {d * kx, -d * ky, d}};
        for (int i = 0; i < 4; ++i)
            append(calls, lineCalls(corners[i], corners[(i + 1) % 4], 1, colour, colour));
        if (d == far_depth)
            for (const Point& corner : corners)
                append(calls, lineCalls(kOrigin, corner, 1, colour, colour));
    }
    return calls;
}

TEST_F(PointCloudView, BeforeInitResourceOnlyClearsToBlack) {
    EXPECT_TRUE(take().empty());
    EXPECT_TRUE(sameCalls(paint(), clearCalls()));
    view.initializeGL();
    EXPECT_TRUE(sameCalls(paint(), clearCalls()));
    EXPECT_EQ(view.focusPolicy(), Qt::StrongFocus);
}

TEST_F(PointCloudView, InitializeSetsLightsAndLoadsTheBody) {
    view.initializeGL();
    EXPECT_TRUE(sameCalls(take(), test::litSceneCalls()));
}

TEST_F(PointCloudView, InitResourceBuildsBuffersPointBufferAndCamera) {
    view.initResource(1280, 720, 4);
    // The point buffer holds 1280 * 720 * 4 bytes of colour, then 1280 * 720 * 12 of coordinates.
    const int bytes = 1280 * 720 * 4 + 1280 * 720 * 12;
    EXPECT_TRUE(
        sameCalls(take(), {"MatPointerVector_CPU::deallocate_all()",
                           "MatPointerVector_CPU::clear_vector()",
                           "MatPointerVector_CPU::add_pointer(1280, 720, 4, 1)",
                           "MatPointerVector_CPU::add_pointer(1280, 720, 3, 4)",
                           "MatPointerVector_CPU::allocate_all()",
                           "MatPointerVector_CUDA::deallocate_all()",
                           "MatPointerVector_CUDA::clear_vector()",
                           "MatPointerVector_CUDA::add_pointer(1280, 720, 4, 1)",
                           "MatPointerVector_CUDA::allocate_all(0)",
                           callText("glewGetString", 1),
                           "glewInit()",
                           "glGenBuffers(1)",
                           callText("glBindBuffer", kArrayBuffer, 1),
                           callText("glBufferData", kArrayBuffer, bytes, "null", kDynamicDraw),
                           callText("glBindBuffer", kArrayBuffer, 0),
                           "MatPointerVector_CPU::deallocate_all()",
                           "MatPointerVector_CPU::clear_vector()",
                           "MatPointerVector_CPU::add_pointer(1280, 720, 4, 1)",
                           "MatPointerVector_CPU::add_pointer(1280, 720, 3, 4)",
                           "MatPointerVector_CPU::allocate_all()",
                           callText("glEnable", 0x140A),
                           callText("glEnable", GL_TEXTURE_2D),
                           callText("glEnable", GL_CULL_FACE)}));
    EXPECT_EQ(test::liveBuffers(), 5);
    EXPECT_NE(view.getImagePointer(), nullptr);
    EXPECT_NE(view.getImagePointerGPU(), nullptr);
    EXPECT_NE(view.getPointCloudPointer(), nullptr);
}

TEST_F(PointCloudView, PointBufferHoldsColoursFollowedByCoordinates) {
    view.initResource(1280, 720, 4);
    const Calls calls = paint();
    EXPECT_EQ(calls.at(17), callText("glBufferSubData", kArrayBuffer, 0, 1280 * 720 * 4));
    EXPECT_EQ(calls.at(18),
              callText("glBufferSubData", kArrayBuffer, 1280 * 720 * 4, 1280 * 720 * 12));
}

TEST_F(PointCloudView, PaintsEverythingInOrder) {
    view.initializeGL();
    view.initResource(8, 4, 4);
    view.setFocalLength(10, 20);
    view.setDepthRange(300, 2500);
    view.setTargetPoint({1, 2, 3});
    Calls expected = sceneCalls();
    append(expected, pointCalls(32, 4));
    append(expected, measurementCalls({1, 2, 3}, kOrigin, kOrigin));
    append(expected, frustumCalls(10, 20, 300, 2500, 8, 4));
    append(expected, test::axesCalls());
    append(expected, {callText("glEnable", GL_LIGHT0), callText("glEnable", GL_LIGHTING)});
    append(expected, test::bodyCalls());
    expected.push_back("glPopMatrix()");
    EXPECT_TRUE(sameCalls(paint(), expected));
    // No size is set for the points, and the second paint is as the first.
    EXPECT_TRUE(sameCalls(paint(), expected));
}

TEST_F(PointCloudView, TargetAndTriangleExcludeEachOther) {
    view.initResource(8, 4, 4);
    hideAll();
    view.setShowPointCloud(true);
    const auto measurement = [this] {
        const Calls calls = paint();
        return Calls(calls.end() - 29, calls.end() - 1);
    };
    view.setTrianglePoint({1, 2, 3}, {4, 5, 6});
    EXPECT_TRUE(sameCalls(measurement(), measurementCalls(kOrigin, {1, 2, 3}, {4, 5, 6})));
    view.setTargetPoint({7, 8, 9});
    EXPECT_TRUE(sameCalls(measurement(), measurementCalls({7, 8, 9}, kOrigin, kOrigin)));
    view.setTrianglePoint({1, 2, 3}, {4, 5, 6});
    EXPECT_TRUE(sameCalls(measurement(), measurementCalls(kOrigin, {1, 2, 3}, {4, 5, 6})));
    view.clearPoint();
    EXPECT_TRUE(sameCalls(measurement(), measurementCalls(kOrigin, kOrigin, kOrigin)));
}

TEST_F(PointCloudView, HidingTheCloudHidesTheMeasurementButNotTheRest) {
    view.initializeGL();
    view.initResource(8, 4, 4);
    view.setFocalLength(10, 20);
    view.setDepthRange(300, 2500);
    view.setTargetPoint({1, 2, 3});
    view.setShowPointCloud(false);
    Calls expected = sceneCalls();
    append(expected, frustumCalls(10, 20, 300, 2500, 8, 4));
    append(expected, test::axesCalls());
    append(expected, {callText("glEnable", GL_LIGHT0), callText("glEnable", GL_LIGHTING)});
    append(expected, test::bodyCalls());
    expected.push_back("glPopMatrix()");
    EXPECT_TRUE(sameCalls(paint(), expected));
}

TEST_F(PointCloudView, EachPartIsShownByItsFlag) {
    view.initializeGL();
    view.initResource(8, 4, 4);
    view.setFocalLength(10, 20);
    view.setDepthRange(300, 2500);
    hideAll();
    Calls none = sceneCalls();
    none.push_back("glPopMatrix()");
    EXPECT_TRUE(sameCalls(paint(), none));

    view.setShowFov(true);
    Calls expected = sceneCalls();
    append(expected, frustumCalls(10, 20, 300, 2500, 8, 4));
    expected.push_back("glPopMatrix()");
    EXPECT_TRUE(sameCalls(paint(), expected));
    view.setShowFov(false);

    view.setShowAxes(true);
    expected = sceneCalls();
    append(expected, test::axesCalls());
    expected.push_back("glPopMatrix()");
    EXPECT_TRUE(sameCalls(paint(), expected));
    view.setShowAxes(false);

    view.setShowCamera(true);
    expected = sceneCalls();
    append(expected, {callText("glEnable", GL_LIGHT0), callText("glEnable", GL_LIGHTING)});
    append(expected, test::bodyCalls());
    expected.push_back("glPopMatrix()");
    EXPECT_TRUE(sameCalls(paint(), expected));
}

TEST_F(PointCloudView, FramesAreCopiedAndDrawn) {
    view.initResource(4, 2, 3);
    std::vector<unsigned char> image(24);
    std::iota(image.begin(), image.end(), 1);
    std::vector<float> cloud(24);
    std::iota(cloud.begin(), cloud.end(), 0.5f);
    view.setImagePointer(image.data());
    view.setPointCloudPointer(cloud.data());
    EXPECT_TRUE(std::equal(cloud.begin(), cloud.end(), view.getPointCloudPointer()));
    take();
    view.paintGL();
    const auto calls = CallLog::instance().calls();
    EXPECT_EQ(calls.at(17).data, image);
    const auto* bytes = reinterpret_cast<const unsigned char*>(cloud.data());
    EXPECT_EQ(calls.at(18).data, std::vector<unsigned char>(bytes, bytes + 96));
}

TEST_F(PointCloudView, NullFramesKeepTheLastImageAndCloud) {
    view.initResource(4, 2, 4);
    std::vector<unsigned char> image(32, 7);
    std::vector<float> cloud(24, 3.5f);
    view.setImagePointer(image.data());
    view.setPointCloudPointer(cloud.data());
    take();
    view.setImagePointer(nullptr);
    view.setImagePointerGPU(nullptr);
    view.setPointCloudPointer(nullptr);
    EXPECT_TRUE(take().empty());
    EXPECT_TRUE(std::equal(image.begin(), image.end(), view.getImagePointer()));
    EXPECT_TRUE(std::equal(cloud.begin(), cloud.end(), view.getPointCloudPointer()));
    view.paintGL();
    EXPECT_EQ(CallLog::instance().calls().at(17).data, image);
    EXPECT_EQ(test::countCalls(take(), "CudaFunctions::download"), 0);
}

TEST_F(PointCloudView, DeviceImageIsDownloadedBeforeItColoursThePoints) {
    view.initResource(4, 2, 4);
    std::vector<unsigned char> image(32, 9);
    take();
    view.setImagePointerGPU(image.data());
    EXPECT_TRUE(sameCalls(take(), {"CudaFunctions::copy(32)"}));
    view.paintGL();
    auto calls = CallLog::instance().calls();
    EXPECT_EQ(calls.at(16).text, "CudaFunctions::download(32)");
    EXPECT_EQ(calls.at(18).data, image);
    // A host image takes over again.
    view.setImagePointer(image.data());
    EXPECT_EQ(test::countCalls(paint(), "CudaFunctions::download"), 0);
}

TEST_F(PointCloudView, QuaternionTurnsTheScene) {
    view.initResource(4, 2, 4);
    hideAll();
    float half_turn_about_z[4] = {0, 0, 1, 0};
    view.set_quaternion(half_turn_about_z);
    EXPECT_EQ(paint().at(14), "glMultMatrixf([-1 0 0 0 0 -1 0 0 0 0 1 0 0 0 0 1])");
    float third_of_a_turn[4] = {0.5f, 0.5f, 0.5f, 0.5f};  // x to y, y to z, z to x
    view.set_quaternion(third_of_a_turn);
    EXPECT_EQ(paint().at(14), "glMultMatrixf([0 1 0 0 0 0 1 0 1 0 0 0 0 0 0 1])");
    view.set_quaternion(nullptr);
    EXPECT_EQ(paint().at(14), "glMultMatrixf([0 1 0 0 0 0 1 0 1 0 0 0 0 0 0 1])");
    float identity[4] = {0, 0, 0, 1};
    view.set_quaternion(identity);
    EXPECT_EQ(paint().at(14), callText("glMultMatrixf", kIdentity));
}

TEST_F(PointCloudView, TranslationShiftsTheSceneAfterTheTurn) {
    view.initResource(4, 2, 4);
    hideAll();
    view.set_imu_translation({1, -2, 3});
    Calls expected = sceneCalls(kIdentity, {1, -2, 3});
    expected.push_back("glPopMatrix()");
    EXPECT_TRUE(sameCalls(paint(), expected));
}

TEST_F(PointCloudView, ResizeFitsTheProjection) {
    view.initResource(4, 2, 4);
    hideAll();
    take();
    view.resizeGL(900, 300);
    EXPECT_TRUE(take().empty());
    Calls expected = sceneCalls(kIdentity, kOrigin, 900, 300);
    expected.push_back("glPopMatrix()");
    EXPECT_TRUE(sameCalls(paint(), expected));
}

const Calls kFreeBuffers{
    "MatPointerVector_CPU::deallocate_all()", "MatPointerVector_CPU::clear_vector()",
    "MatPointerVector_CUDA::deallocate_all()", "MatPointerVector_CUDA::clear_vector()"};
const Calls kFreeInterop{"glBindBuffer(1, 1)", "glDeleteBuffers(1, 1)",
                         "MatPointerVector_CPU::deallocate_all()",
                         "MatPointerVector_CPU::clear_vector()"};

TEST_F(PointCloudView, UninitResourceReleasesAllAndTheViewIsBlack) {
    view.initializeGL();
    view.initResource(4, 2, 4);
    take();
    view.uninitResource();
    Calls expected = kFreeBuffers;
    append(expected, kFreeInterop);
    EXPECT_TRUE(sameCalls(take(), expected));
    EXPECT_EQ(test::liveBuffers(), 0);
    EXPECT_TRUE(sameCalls(paint(), clearCalls()));
    // The body is still there at the next capture, with another size.
    view.initResource(8, 4, 3);
    const Calls calls = paint();
    EXPECT_EQ(test::countCalls(calls, "glNormal3fv"), 2);
    EXPECT_EQ(calls.at(23), callText("glDrawArrays", GL_POINTS, 0, 32));
}

TEST_F(PointCloudView, InitResourceAgainReplacesThePointBuffer) {
    view.initResource(4, 2, 4);
    take();
    view.initResource(8, 4, 4);
    Calls calls = take();
    calls.resize(std::min<std::size_t>(calls.size(), 4));
    EXPECT_TRUE(sameCalls(calls, kFreeInterop));
    EXPECT_EQ(test::liveBuffers(), 5);
}

TEST_F(PointCloudView, DestructorReleasesWithoutUninitResource) {
    {
        View other;
        other.initResource(4, 2, 4);
        take();
    }
    Calls expected = kFreeInterop;
    append(expected, kFreeBuffers);
    EXPECT_TRUE(sameCalls(take(), expected));
    EXPECT_EQ(test::liveBuffers(), 0);
}

TEST_F(PointCloudView, FramesBeforeInitResourceAreHarmless) {
    unsigned char image[4] = {};
    float cloud[3] = {};
    view.setImagePointer(image);
    view.setImagePointerGPU(image);
    view.setPointCloudPointer(cloud);
    EXPECT_TRUE(sameCalls(paint(), clearCalls()));
}

}  // namespace
}  // namespace kova::qwidget
