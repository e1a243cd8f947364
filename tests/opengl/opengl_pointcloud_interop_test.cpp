#include "opengl/opengl_pointcloud_interop.h"

#include <GL/glew.h>

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>

#include "opengl/opengl_pointcloud_interop_p.h"
#include "tests/support/gl_double.h"
#include "tests/support/support_double.h"

namespace kova {
namespace {

using test::CallLog;
using test::callText;
using test::sameCalls;
using Calls = std::vector<std::string>;

class Interop : public OpenGLPointCloudInterop {
public:
    OpenGLPointCloudInteropVars& vars() { return *vars_; }
};

class OpenGLPointCloudInteropTest : public testing::Test {
protected:
    void SetUp() override { test::resetGlDouble(); }
    static Calls take() { return CallLog::instance().take(); }
};

std::string bind(unsigned int name) {
    return callText("glBindBuffer", GL_ARRAY_BUFFER, name);
}

Calls drawCalls(int colour_bytes, int xyz_bytes, int channels, int points, GLenum type) {
    Calls calls{bind(1),
                callText("glBufferSubData", GL_ARRAY_BUFFER, 0, colour_bytes),
                callText("glBufferSubData", GL_ARRAY_BUFFER, colour_bytes, xyz_bytes),
                callText("glEnableClientState", GL_VERTEX_ARRAY),
                callText("glEnableClientState", GL_COLOR_ARRAY),
                callText("glColorPointer", channels, GL_UNSIGNED_BYTE, 0, 0)};
    if (type != 0)
        calls.push_back(callText("glVertexPointer", 3, type, 0, colour_bytes));
    const Calls rest{callText("glDrawArrays", GL_POINTS, 0, points),
                     callText("glDisableClientState", GL_VERTEX_ARRAY),
                     callText("glDisableClientState", GL_COLOR_ARRAY), bind(0)};
    calls.insert(calls.end(), rest.begin(), rest.end());
    return calls;
}

std::vector<unsigned char> bytesOf(const std::vector<float>& values) {
    std::vector<unsigned char> bytes(values.size() * sizeof(float));
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

TEST_F(OpenGLPointCloudInteropTest, ConstructionInitialisesTheExtensions) {
    testing::internal::CaptureStdout();
    Interop interop;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(sameCalls(take(), {callText("glewGetString", GLEW_VERSION), "glewInit()"}));
    EXPECT_EQ(interop.vars().vbo, 0u);
    EXPECT_EQ(interop.vars().width, 0);
    EXPECT_EQ(interop.vars().colour_bytes, 0);
    EXPECT_FALSE(interop.vars().initialised);
}

TEST_F(OpenGLPointCloudInteropTest, FailedGlewInitIsOneLineAndTheObjectIsUsable) {
    test::setGlewInitResult(4);
    testing::internal::CaptureStdout();
    Interop interop;
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ERROR: glewInit failed with error: Scripted failure\n");
    EXPECT_TRUE(sameCalls(
        take(), {callText("glewGetString", GLEW_VERSION), "glewInit()", "glewGetErrorString(4)"}));
    EXPECT_EQ(interop.init(4, 2, 1, 4, 3), 1);
}

TEST_F(OpenGLPointCloudInteropTest, Init640x360GivesABufferOf3456000Bytes) {
    Interop interop;
    take();
    EXPECT_EQ(interop.init(640, 360, 1, 4, 3), 1);
    EXPECT_EQ(interop.vars().colour_bytes, 691200);
    EXPECT_EQ(interop.vars().xyz_bytes, 2764800);
    EXPECT_TRUE(sameCalls(
        take(),
        {"glGenBuffers(1)", bind(1),
         callText("glBufferData", GL_ARRAY_BUFFER, 3456000, "null", GL_DYNAMIC_DRAW), bind(0),
         "MatPointerVector_CPU::deallocate_all()", "MatPointerVector_CPU::clear_vector()",
         "MatPointerVector_CPU::add_pointer(640, 360, 3, 1)",
         "MatPointerVector_CPU::add_pointer(640, 360, 3, 4)",
         "MatPointerVector_CPU::allocate_all()"}));
    EXPECT_TRUE(interop.vars().initialised);
    EXPECT_NE(interop.vars().colour_host, nullptr);
    EXPECT_NE(interop.vars().xyz_host, nullptr);

    // The coordinates start at byte 691200.
    std::vector<unsigned char> colours(691200);
    std::vector<float> xyz(640 * 360 * 3);
    interop.draw(colours.data(), xyz.data(), 1);
    EXPECT_TRUE(sameCalls(take(), drawCalls(691200, 2764800, 3, 640 * 360, GL_FLOAT)));
}

TEST_F(OpenGLPointCloudInteropTest, DrawUploadsBothBlocks) {
    Interop interop;
    interop.init(2, 2, 1, 4, 4);
    std::vector<unsigned char> colours(16);
    std::iota(colours.begin(), colours.end(), 1);
    std::vector<float> xyz(12);
    std::iota(xyz.begin(), xyz.end(), 0.5f);
    CallLog::instance().clear();
    interop.draw(colours.data(), xyz.data(), 3);
    const auto calls = CallLog::instance().calls();
    EXPECT_EQ(calls.at(1).data, colours);
    EXPECT_EQ(calls.at(2).data, bytesOf(xyz));
    EXPECT_EQ(test::countCalls(take(), "glPointSize"), 0) << "the size of points is the view's";
}

TEST_F(OpenGLPointCloudInteropTest, DrawWithANullPointerIssuesNoCall) {
    Interop interop;
    interop.init(2, 2, 1, 4, 4);
    take();
    unsigned char colours[16] = {};
    float xyz[12] = {};
    interop.draw(nullptr, xyz, 1);
    interop.draw(colours, nullptr, 1);
    interop.draw(nullptr, nullptr, 1);
    interop.draw(nullptr, 1);
    EXPECT_TRUE(take().empty());
}

TEST_F(OpenGLPointCloudInteropTest, ByteCoordinatesAndUnknownSizes) {
    Interop bytes;
    bytes.init(2, 2, 1, 1, 4);
    EXPECT_EQ(bytes.vars().xyz_bytes, 12);
    take();
    unsigned char data[64] = {};
    bytes.draw(data, data, 1);
    EXPECT_TRUE(sameCalls(take(), drawCalls(16, 12, 4, 4, GL_UNSIGNED_BYTE)));

    test::resetGlDouble();
    Interop shorts;
    shorts.init(2, 2, 1, 2, 4);
    take();
    shorts.draw(data, data, 1);
    EXPECT_TRUE(sameCalls(take(), drawCalls(16, 24, 4, 4, 0))) << "no vertex pointer";
}

std::vector<float> interleaved(unsigned char a, unsigned char b, unsigned char c, unsigned char d) {
    float packed;
    const unsigned char colour[4] = {a, b, c, d};
    std::memcpy(&packed, colour, 4);
    return {1, 2, 3, packed};
}

TEST_F(OpenGLPointCloudInteropTest, InterleavedCloudIsSplitByItsChannels) {
    Interop rgb;
    rgb.init(1, 1, 1, 4, 3);
    take();
    std::vector<float> abgr = interleaved(4, 3, 2, 1);
    rgb.draw(abgr.data(), 1);
    auto calls = CallLog::instance().calls();
    EXPECT_EQ(calls.at(0).text, "Utils::getChannel_xyzabgr_xyz_rgb(1, 1)");
    EXPECT_EQ(calls.at(2).data, (std::vector<unsigned char>{1, 2, 3}));
    EXPECT_EQ(calls.at(3).data, bytesOf({1, 2, 3}));

    Interop rgba;
    rgba.init(1, 1, 1, 4, 4);
    take();
    std::vector<float> bgra = interleaved(3, 2, 1, 4);
    rgba.draw(bgra.data(), 1);
    calls = CallLog::instance().calls();
    EXPECT_EQ(calls.at(0).text, "Utils::getChannel_xyzbgra_xyz_rgba(1, 1)");
    EXPECT_EQ(calls.at(2).data, (std::vector<unsigned char>{1, 2, 3, 4}));
    EXPECT_EQ(calls.at(3).data, bytesOf({1, 2, 3}));
}

TEST_F(OpenGLPointCloudInteropTest, InterleavedCloudWithTwoChannelsDrawsTheFrameBefore) {
    Interop interop;
    interop.init(1, 1, 1, 4, 2);
    unsigned char colours[2] = {5, 6};
    float xyz[3] = {7, 8, 9};
    interop.draw(colours, xyz, 1);
    take();
    std::vector<float> other = interleaved(1, 2, 3, 4);
    interop.draw(other.data(), 1);
    const auto calls = CallLog::instance().calls();
    EXPECT_EQ(calls.at(1).data, (std::vector<unsigned char>{5, 6}));
    EXPECT_EQ(calls.at(2).data, bytesOf({7, 8, 9}));
    EXPECT_TRUE(sameCalls(take(), drawCalls(2, 12, 2, 1, GL_FLOAT)));
}

TEST_F(OpenGLPointCloudInteropTest, NumberOfPointsIsAlwaysWidthTimesHeight) {
    Interop interop;
    interop.init(3, 2, 1, 4, 3);
    unsigned char colours[18] = {};
    std::vector<float> xyz(18, std::nanf(""));
    take();
    interop.draw(colours, xyz.data(), 1);
    EXPECT_EQ(take().at(7), callText("glDrawArrays", GL_POINTS, 0, 6));
}

TEST_F(OpenGLPointCloudInteropTest, UninitOfOneNeverInitialisedReturns1WithoutACall) {
    Interop interop;
    take();
    EXPECT_EQ(interop.uninit(), 1);
    EXPECT_TRUE(take().empty());
}

const Calls kRelease{"glBindBuffer(1, 1)", "glDeleteBuffers(1, 1)",
                     "MatPointerVector_CPU::deallocate_all()",
                     "MatPointerVector_CPU::clear_vector()"};

TEST_F(OpenGLPointCloudInteropTest, UninitReleasesAndForgets) {
    Interop interop;
    interop.init(640, 360, 1, 4, 3);
    take();
    EXPECT_EQ(interop.uninit(), 1);
    EXPECT_TRUE(sameCalls(take(), kRelease));
    const OpenGLPointCloudInteropVars& vars = interop.vars();
    EXPECT_EQ(vars.vbo, 0u);
    EXPECT_EQ(vars.width, 0);
    EXPECT_EQ(vars.height, 0);
    EXPECT_EQ(vars.colour_bytes, 0);
    EXPECT_EQ(vars.xyz_bytes, 0);
    EXPECT_EQ(vars.coord_size, 0);
    EXPECT_EQ(vars.colour_channels, 0);
    EXPECT_FALSE(vars.initialised);
    EXPECT_EQ(test::liveBuffers(), 0);
    EXPECT_EQ(interop.uninit(), 1);
    EXPECT_TRUE(take().empty());
}

TEST_F(OpenGLPointCloudInteropTest, DestructorReleasesAsUninitDoes) {
    {
        Interop interop;
        interop.init(640, 360, 1, 4, 3);
        take();
    }
    EXPECT_TRUE(sameCalls(take(), kRelease));
    EXPECT_EQ(test::liveBuffers(), 0);
}

TEST_F(OpenGLPointCloudInteropTest, SecondInitTakesANewBuffer) {
    Interop interop;
    interop.init(2, 2, 1, 4, 4);
    interop.init(4, 4, 1, 4, 4);
    EXPECT_EQ(interop.vars().vbo, 2u);
    EXPECT_EQ(test::countCalls(take(), "glDeleteBuffers"), 0);
    EXPECT_EQ(test::liveBuffers(), 2);
}

}  // namespace
}  // namespace kova
