#include "qwidget/cpumouseqopenglwidget.h"

#include <gtest/gtest.h>

#include <numeric>

#include "tests/qwidget/expected_calls.h"
#include "tests/qwidget/mouse_events.h"
#include "tests/support/support_double.h"

namespace kova::qwidget {
namespace {

using test::append;
using test::CallLog;
using test::Calls;
using test::callText;
using test::clearCalls;
using test::lineCalls;
using test::sameCalls;
using Point = Size2_<float>;

constexpr Size3_<float> kGrid{0.2f, 0.8f, 0.0f};
constexpr Size3_<float> kRuler{0.2f, 0.2f, 0.8f};
constexpr Size3_<float> kMark{0.8f, 0.2f, 0.0f};

class View : public CPUMouseQOpenGLWidget {
public:
    using CPUMouseQOpenGLWidget::initializeGL;
    using CPUMouseQOpenGLWidget::paintGL;
    using CPUMouseQOpenGLWidget::resizeGL;
};

class ImageView : public testing::Test {
protected:
    ImageView() {
        test::resetGlDouble();
        view.resize(640, 480);
    }
    static Calls take() { return CallLog::instance().take(); }

    // The calls of one paint without those that clear and draw the image.
    Calls overlays() {
        take();
        view.paintGL();
        Calls calls = take();
        EXPECT_GE(calls.size(), 20u);
        calls.erase(calls.begin(), calls.begin() + std::min<std::size_t>(calls.size(), 20));
        return calls;
    }

    View view;
};

Calls imageCalls(unsigned int texture, GLenum format, int width, int height, float h, float v) {
    return {callText("glEnable", GL_TEXTURE_2D),
            callText("glBindTexture", GL_TEXTURE_2D, texture),
            callText("glTexImage2D", GL_TEXTURE_2D, 0, format, width, height, 0, format,
                     GL_UNSIGNED_BYTE, "data"),
            callText("glBegin", GL_QUADS),
            "glColor3f(1, 1, 1)",
            "glTexCoord2f(0, 1)",
            callText("glVertex2f", -h, -v),
            "glTexCoord2f(1, 1)",
            callText("glVertex2f", h, -v),
            "glTexCoord2f(1, 0)",
            callText("glVertex2f", h, v),
            "glTexCoord2f(0, 0)",
            callText("glVertex2f", -h, v),
            "glEnd()",
            callText("glBindTexture", GL_TEXTURE_2D, 0),
            callText("glDisable", GL_TEXTURE_2D)};
}

Calls textureCalls(unsigned int texture, GLenum format, int width, int height) {
    return {"glGenTextures(1)",
            callText("glBindTexture", GL_TEXTURE_2D, texture),
            callText("glTexParameteri", GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR),
            callText("glTexParameteri", GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR),
            callText("glTexImage2D", GL_TEXTURE_2D, 0, format, width, height, 0, format,
                     GL_UNSIGNED_BYTE, "null"),
            callText("glBindTexture", GL_TEXTURE_2D, 0)};
}

const Calls kFreeBuffers{
    "MatPointerVector_CPU::deallocate_all()", "MatPointerVector_CPU::clear_vector()",
    "MatPointerVector_CUDA::deallocate_all()", "MatPointerVector_CUDA::clear_vector()"};

Calls releaseTexture(unsigned int texture) {
    return {callText("glBindTexture", GL_TEXTURE_2D, texture),
            callText("glDeleteTextures", 1, texture), callText("glBindTexture", GL_TEXTURE_2D, 0)};
}

Calls crossCalls(float x, float y, int width = 640, int height = 480) {
    const float ax = 20.0f / static_cast<float>(width);
    const float ay = 20.0f / static_cast<float>(height);
    Calls calls = lineCalls(Point{x - ax, y}, Point{x + ax, y}, 3, kMark, kMark);
    append(calls, lineCalls(Point{x, y - ay}, Point{x, y + ay}, 3, kMark, kMark));
    return calls;
}

TEST_F(ImageView, IsPlainBlackBeforeInitResourceAndAfterUninitResource) {
    view.setDrawGrid(true, 7);
    view.setDrawCenter(true, true);
    view.paintGL();
    EXPECT_TRUE(sameCalls(take(), clearCalls()));
    view.initResource(64, 32, false);
    view.uninitResource();
    take();
    view.paintGL();
    EXPECT_TRUE(sameCalls(take(), clearCalls()));
}

TEST_F(ImageView, ANewContextNeedsInitResourceAgain) {
    view.initResource(64, 32, false);
    take();
    view.initializeGL();
    EXPECT_TRUE(take().empty());
    view.paintGL();
    EXPECT_TRUE(sameCalls(take(), clearCalls()));
}

TEST_F(ImageView, CreatesNothingBeforeInitResource) {
    EXPECT_TRUE(take().empty());
    EXPECT_EQ(view.getImagePointer(), nullptr);
    EXPECT_EQ(view.getImagePointerGPU(), nullptr);
    unsigned char pixel[4] = {};
    view.setImagePointer(pixel);
    view.setImagePointerGPU(pixel);
    EXPECT_FALSE(view.getDrawGrid());
    EXPECT_FALSE(view.getDrawCenter());
    EXPECT_FALSE(view.getDrawCross());
}

TEST_F(ImageView, ResizeSetsTheViewport) {
    view.resizeGL(320, 200);
    EXPECT_TRUE(sameCalls(take(), {"glViewport(0, 0, 320, 200)"}));
}

TEST_F(ImageView, InitResourceBuildsBuffersAndTextures) {
    for (const bool grey : {true, false}) {
        View fresh;
        test::resetGlDouble();
        fresh.initResource(64, 32, grey);
        const GLenum format = grey ? GL_LUMINANCE : GL_RGBA;
        const int channels = grey ? 1 : 4;
        Calls expected = kFreeBuffers;
        append(expected, textureCalls(1, format, 64, 32));
        append(expected, textureCalls(2, format, 64, 32));
        append(expected,
               {callText("glEnable", GL_ALPHA_TEST),
                callText("MatPointerVector_CPU::add_pointer", 64, 32, channels, 1),
                callText("MatPointerVector_CUDA::add_pointer", 64, 32, channels, 1),
                "MatPointerVector_CPU::allocate_all()", "MatPointerVector_CUDA::allocate_all(0)"});
        EXPECT_TRUE(sameCalls(take(), expected));
        EXPECT_NE(fresh.getImagePointer(), nullptr);
        EXPECT_NE(fresh.getImagePointerGPU(), nullptr);
    }
}

TEST_F(ImageView, InitResourceAgainReleasesWhatWasThere) {
    view.initResource(64, 32, true);
    take();
    view.initResource(128, 32, false);
    Calls expected = kFreeBuffers;
    append(expected, releaseTexture(1));
    append(expected, releaseTexture(2));
    append(expected, textureCalls(3, GL_RGBA, 128, 32));
    Calls calls = take();
    calls.resize(std::min(calls.size(), expected.size()));
    EXPECT_TRUE(sameCalls(calls, expected));
    EXPECT_EQ(test::liveBuffers(), 2);
}

TEST_F(ImageView, UninitResourceReleasesBuffersAndTextures) {
    view.initResource(64, 32, true);
    take();
    view.uninitResource();
    Calls expected = kFreeBuffers;
    append(expected, releaseTexture(1));
    append(expected, releaseTexture(2));
    EXPECT_TRUE(sameCalls(take(), expected));
    EXPECT_EQ(test::liveBuffers(), 0);
    EXPECT_EQ(view.getImagePointer(), nullptr);
    unsigned char pixel[4] = {};
    view.setImagePointer(pixel);
    view.uninitResource();
    EXPECT_TRUE(sameCalls(take(), kFreeBuffers));
}

TEST_F(ImageView, DestructorReleasesWithoutUninitResource) {
    {
        View other;
        other.initResource(64, 32, true);
        take();
    }
    Calls expected = releaseTexture(1);
    append(expected, releaseTexture(2));
    append(expected, kFreeBuffers);
    EXPECT_TRUE(sameCalls(take(), expected));
    EXPECT_EQ(test::liveBuffers(), 0);
}

TEST_F(ImageView, FramesAreCopiedWithTheBytesOfTheirChannels) {
    std::vector<unsigned char> frame(8 * 4 * 4 + 1);
    std::iota(frame.begin(), frame.end(), 0);
    view.initResource(8, 4, true);
    view.setImagePointer(frame.data());
    EXPECT_TRUE(std::equal(frame.begin(), frame.begin() + 32, view.getImagePointer()));
    take();
    view.setImagePointerGPU(frame.data());
    EXPECT_TRUE(sameCalls(take(), {"CudaFunctions::copy(32)"}));

    view.initResource(8, 4, false);
    view.setImagePointer(frame.data());
    EXPECT_TRUE(std::equal(frame.begin(), frame.begin() + 128, view.getImagePointer()));
    take();
    view.setImagePointerGPU(frame.data());
    EXPECT_TRUE(sameCalls(take(), {"CudaFunctions::copy(128)"}));
    EXPECT_TRUE(std::equal(frame.begin(), frame.begin() + 128, view.getImagePointerGPU()));
}

TEST_F(ImageView, NullFramesAreIgnored) {
    std::vector<unsigned char> frame(32, 5);
    view.initResource(8, 4, true);
    view.setImagePointerGPU(frame.data());
    take();
    view.setImagePointer(nullptr);
    view.setImagePointerGPU(nullptr);
    EXPECT_TRUE(take().empty());
    view.paintGL();
    EXPECT_EQ(take().at(5), callText("glBindTexture", GL_TEXTURE_2D, 2)) << "still the device's";
}

TEST_F(ImageView, DrawsTheLatestSource) {
    std::vector<unsigned char> frame(64 * 48 * 4, 5);
    view.initResource(64, 48, false);
    view.setImagePointer(frame.data());
    take();
    view.paintGL();
    Calls expected = clearCalls();
    append(expected, imageCalls(1, GL_RGBA, 64, 48, 1, 1));
    EXPECT_TRUE(sameCalls(take(), expected));

    frame[0] = 77;
    view.setImagePointerGPU(frame.data());
    CallLog::instance().clear();
    view.paintGL();
    EXPECT_EQ(CallLog::instance().calls().at(6).data, frame);
    expected = clearCalls();
    append(expected, imageCalls(2, GL_RGBA, 64, 48, 1, 1));
    EXPECT_TRUE(sameCalls(take(), expected));

    view.setImagePointer(frame.data());
    take();
    view.paintGL();
    expected = clearCalls();
    append(expected, imageCalls(1, GL_RGBA, 64, 48, 1, 1));
    EXPECT_TRUE(sameCalls(take(), expected));
}

TEST_F(ImageView, SideBySideFrameKeepsItsRatioOrFillsTheWidget) {
    std::vector<unsigned char> frame(1280 * 480);
    view.initResource(1280, 480, true);
    view.setImagePointer(frame.data());
    view.setDrawCenter(true, true);
    take();
    view.paintGL();
    Calls expected = clearCalls();
    append(expected, imageCalls(1, GL_LUMINANCE, 1280, 480, 1, 0.5f));
    append(expected, crossCalls(-0.5f, 0));
    append(expected, crossCalls(0.5f, 0));
    EXPECT_TRUE(sameCalls(take(), expected));

    view.setKeepRatio(false);
    view.paintGL();
    expected = clearCalls();
    append(expected, imageCalls(1, GL_LUMINANCE, 1280, 480, 1, 1));
    append(expected, crossCalls(-0.5f, 0));
    append(expected, crossCalls(0.5f, 0));
    EXPECT_TRUE(sameCalls(take(), expected));
}

TEST_F(ImageView, TallFrameHasItsHalvesInsideTheLetterbox) {
    view.initResource(240, 480, true);
    view.setDrawCenter(true, true);
    view.setDrawGrid(true, 1);
    const float right = 0.5f / (640.0f / 480.0f);
    Calls expected = lineCalls(Point{-right, 0}, Point{right, 0}, 1, kGrid, kGrid);
    append(expected, lineCalls(Point{-right, 0}, Point{right, 0}, 1, kGrid, kGrid));
    append(expected, crossCalls(-0.5f * right, 0));
    append(expected, crossCalls(0.5f * right, 0));
    EXPECT_TRUE(sameCalls(overlays(), expected));
}

// Heights of the horizontal lines of the overlays, in order.
std::vector<float> lineHeights(const Calls& calls) {
    std::vector<float> heights;
    for (std::size_t i = 0; i + 6 < calls.size(); i += 7) {
        float x0 = 0, y0 = 0, x1 = 0, y1 = 0;
        EXPECT_EQ(std::sscanf(calls[i + 3].c_str(), "glVertex2f(%f, %f)", &x0, &y0), 2);
        EXPECT_EQ(std::sscanf(calls[i + 5].c_str(), "glVertex2f(%f, %f)", &x1, &y1), 2);
        EXPECT_EQ(x0, -1);
        EXPECT_EQ(x1, 1);
        EXPECT_EQ(y0, y1);
        heights.push_back(y0);
    }
    return heights;
}

void expectHeights(const Calls& calls, const std::vector<float>& expected) {
    const std::vector<float> heights = lineHeights(calls);
    ASSERT_EQ(heights.size(), expected.size());
    for (std::size_t i = 0; i < heights.size(); ++i)
        EXPECT_NEAR(heights[i], expected[i], 1e-6) << i;
}

TEST_F(ImageView, GridOf7HasLinesAtQuartersAndTheMiddle) {
    view.initResource(1280, 480, true);  // v = 0.5
    view.setDrawGrid(true, 7);
    const float v = 0.5f;
    expectHeights(overlays(),
                  {0, 0, 0.25f * v, -0.25f * v, 0.5f * v, -0.5f * v, 0.75f * v, -0.75f * v});
}

TEST_F(ImageView, GridOf6HasLinesAt1And3And5Sevenths) {
    view.initResource(1280, 480, true);  // v = 0.5
    view.setDrawGrid(true, 6);
    const float v = 0.5f;
    expectHeights(overlays(), {v / 7, -v / 7, 3 * v / 7, -3 * v / 7, 5 * v / 7, -5 * v / 7});
}

TEST_F(ImageView, GridLinesAreThinAndGreen) {
    view.initResource(640, 480, true);
    view.setDrawGrid(true, 2);
    EXPECT_TRUE(view.getDrawGrid());
    const float spacing = ((480.0f / 3.0f) / 480.0f) * 2.0f * 1.0f;
    const float y = spacing / 2;
    Calls expected = lineCalls(Point{-1, y}, Point{1, y}, 1, kGrid, kGrid);
    append(expected, lineCalls(Point{-1, -y}, Point{1, -y}, 1, kGrid, kGrid));
    EXPECT_TRUE(sameCalls(overlays(), expected));
}

TEST_F(ImageView, GridWithoutACountDrawsNothing) {
    view.initResource(640, 480, true);
    for (const int count : {0, -1, -5, std::numeric_limits<int>::min()}) {
        view.setDrawGrid(true, count);
        EXPECT_TRUE(overlays().empty()) << count;
    }
}

TEST_F(ImageView, RulersHaveFourTicksAStepAndTwoUprights) {
    view.initResource(640, 480, true);
    view.setDrawVerticalLine(true, 2);
    const double t = (20.0 / 640) * 1.5;
    const float y = (((480.0f / 3.0f) / 480.0f) * 2.0f) / 2;
    Calls expected;
    for (const float line : {y, -y})
        for (const float x : {-0.5f, 0.5f})
            append(expected, lineCalls(Point{static_cast<float>(x - t), line},
                                       Point{static_cast<float>(x + t), line}, 2, kRuler, kRuler));
    for (const float x : {-0.5f, 0.5f})
        append(expected, lineCalls(Point{x, 1}, Point{x, -1}, 2, kRuler, kRuler));
    EXPECT_TRUE(sameCalls(overlays(), expected));
    // Three ticks: one step in the middle, drawn twice, and one beside it.
    view.setDrawVerticalLine(true, 3);
    EXPECT_EQ(test::countCalls(overlays(), "glBegin"), 2 * 4 + 2);
}

TEST_F(ImageView, OneCentreCrossInTheMiddle) {
    view.initResource(1280, 480, true);
    view.setDrawCenter(true, false);
    EXPECT_TRUE(view.getDrawCenter());
    EXPECT_TRUE(sameCalls(overlays(), crossCalls(0, 0)));
}

TEST_F(ImageView, ClickShowsACross) {
    view.initResource(1280, 720, false);
    view.setDrawCross(true);
    EXPECT_TRUE(view.getDrawCross());
    view.setPressed({320, 180});
    view.setReleased({320, 180});
    EXPECT_TRUE(sameCalls(overlays(), crossCalls(-0.5f, 0.5f)));
    // The corner of the image is a point, too.
    view.setPressed({0, 0});
    view.setReleased({0, 0});
    EXPECT_TRUE(sameCalls(overlays(), crossCalls(-1, 1)));
}

TEST_F(ImageView, DragShowsALine) {
    view.initResource(1280, 720, false);
    view.setDrawCross(true);
    view.setPressed({320, 180});
    view.setReleased({960, 540});
    EXPECT_TRUE(
        sameCalls(overlays(), lineCalls(Point{-0.5f, 0.5f}, Point{0.5f, -0.5f}, 3, kMark, kMark)));
}

TEST_F(ImageView, RightClickShowsNothing) {
    view.initResource(1280, 720, false);
    view.setDrawCross(true);
    view.setPressed({320, 180});
    view.setReleased({320, 180});
    test::press(view, {10, 10}, Qt::RightButton);
    test::release(view, {10, 10}, Qt::RightButton);
    EXPECT_TRUE(overlays().empty());
}

TEST_F(ImageView, NoMarkWhileAComponentIsMissing) {
    view.initResource(1280, 720, false);
    view.setDrawCross(true);
    const Size2_<int> points[][2] = {{{-1, 5}, {-1, 5}},
                                     {{5, -1}, {5, -1}},
                                     {{5, 5}, {-1, -1}},
                                     {{-1, 7}, {5, 5}},
                                     {{5, 5}, {300, -1}}};
    for (const auto& [pressed, released] : points) {
        view.setPressed(pressed);
        view.setReleased(released);
        EXPECT_TRUE(overlays().empty()) << pressed.x << " " << released.x;
    }
}

TEST_F(ImageView, MarkIsHiddenUnlessAskedFor) {
    view.initResource(1280, 720, false);
    view.setPressed({320, 180});
    view.setReleased({320, 180});
    EXPECT_TRUE(overlays().empty());
}

TEST_F(ImageView, OverlaysLieOverTheImageInOrder) {
    view.initResource(640, 480, true);
    view.setPressed({0, 0});
    view.setReleased({0, 0});
    view.setDrawCross(true);
    view.setDrawCenter(true, false);
    view.setDrawVerticalLine(true, 0);
    view.setDrawGrid(true, 1);
    Calls expected = lineCalls(Point{-1, 0}, Point{1, 0}, 1, kGrid, kGrid);
    append(expected, lineCalls(Point{-1, 0}, Point{1, 0}, 1, kGrid, kGrid));
    for (const float x : {-0.5f, 0.5f})
        append(expected, lineCalls(Point{x, 1}, Point{x, -1}, 2, kRuler, kRuler));
    append(expected, crossCalls(0, 0));
    append(expected, crossCalls(-1, 1));
    EXPECT_TRUE(sameCalls(overlays(), expected));
}

}  // namespace
}  // namespace kova::qwidget
