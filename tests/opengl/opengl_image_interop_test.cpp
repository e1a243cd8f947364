#include "opengl/opengl_image_interop.h"

#include <GL/gl.h>
#include <gtest/gtest.h>

#include "opengl/opengl_image_interop_cuda.h"
#include "opengl/opengl_image_interop_cuda_p.h"
#include "opengl/opengl_image_interop_p.h"
#include "tests/support/gl_double.h"

// Both image interops without a device, where the second one takes host memory too.

namespace kova {
namespace {

using test::CallLog;
using test::callText;
using test::sameCalls;
using Calls = std::vector<std::string>;

class HostInterop : public OpenGLImageInterop {
public:
    OpenGLImageInteropVars& vars() { return *vars_; }
};
class DeviceInterop : public OpenGLImageInteropCUDA {
public:
    OpenGLImageInteropCUDAVars& vars() { return *vars_; }
};

class ImageInterop : public testing::Test {
protected:
    void SetUp() override { test::resetGlDouble(); }
    static Calls take() { return CallLog::instance().take(); }
};
using OpenGLImageInteropTest = ImageInterop;
using OpenGLImageInteropCUDAWithoutDevice = ImageInterop;

std::string texImage(GLenum format, int width, int height, const char* data) {
    return callText("glTexImage2D", GL_TEXTURE_2D, 0, format, width, height, 0, format,
                    GL_UNSIGNED_BYTE, data);
}

std::string bind(unsigned int texture) {
    return callText("glBindTexture", GL_TEXTURE_2D, texture);
}

Calls initCalls(GLenum format, int width, int height) {
    return {"glGenTextures(1)",
            bind(1),
            callText("glTexParameteri", GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR),
            callText("glTexParameteri", GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR),
            texImage(format, width, height, "null"),
            bind(0)};
}

Calls drawCalls(GLenum format, int width, int height, float h, float v) {
    return {callText("glEnable", GL_TEXTURE_2D),
            bind(1),
            texImage(format, width, height, "data"),
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
            bind(0),
            callText("glDisable", GL_TEXTURE_2D)};
}

TEST_F(OpenGLImageInteropTest, StartsWithNothing) {
    HostInterop interop;
    const OpenGLImageInteropVars& vars = interop.vars();
    EXPECT_EQ(vars.texture, 0u);
    EXPECT_EQ(vars.width, 0);
    EXPECT_EQ(vars.height, 0);
    EXPECT_EQ(vars.byte_size, 0);
    EXPECT_EQ(vars.element_size, 0);
    EXPECT_EQ(vars.channels, 0);
    EXPECT_EQ(vars.vertical_extent, 1);
    EXPECT_EQ(vars.horizontal_extent, 1);
    EXPECT_FALSE(vars.initialised);
    EXPECT_TRUE(take().empty());
}

TEST_F(OpenGLImageInteropTest, InitRecordsTheGeometryAndCreatesTheTexture) {
    HostInterop interop;
    EXPECT_TRUE(interop.init(1280, 720, 1, 4));
    EXPECT_TRUE(sameCalls(take(), initCalls(GL_RGBA, 1280, 720)));
    EXPECT_EQ(interop.vars().texture, 1u);
    EXPECT_EQ(interop.vars().byte_size, 1280 * 720 * 4);
    EXPECT_EQ(interop.vars().element_size, 1);
    EXPECT_EQ(interop.vars().channels, 4);
    EXPECT_TRUE(interop.vars().initialised);
}

TEST_F(OpenGLImageInteropTest, FormatFollowsTheChannels) {
    for (const auto& [channels, format] : std::vector<std::pair<int, GLenum>>{
             {4, GL_RGBA}, {3, GL_RGB}, {1, GL_LUMINANCE}, {2, GL_LUMINANCE}, {0, GL_LUMINANCE}}) {
        test::resetGlDouble();
        HostInterop interop;
        interop.init(8, 4, 1, channels);
        EXPECT_TRUE(sameCalls(take(), initCalls(format, 8, 4))) << channels;
    }
}

TEST_F(OpenGLImageInteropTest, DrawWithMinusOneFillsTheViewport) {
    std::vector<unsigned char> pixels(1280 * 720 * 4, 7);
    HostInterop interop;
    interop.init(1280, 720, 1, 4);
    take();
    interop.draw(pixels.data(), -1, -1);
    EXPECT_TRUE(sameCalls(take(), drawCalls(GL_RGBA, 1280, 720, 1, 1)));
    for (const auto& [w, h] : {std::pair(-1, 480), std::pair(640, -1)}) {
        interop.draw(pixels.data(), w, h);
        EXPECT_TRUE(sameCalls(take(), drawCalls(GL_RGBA, 1280, 720, 1, 1)));
    }
}

TEST_F(OpenGLImageInteropTest, WiderImageIn640x480HasExtents1And075) {
    std::vector<unsigned char> pixels(1280 * 720 * 4);
    HostInterop interop;
    interop.init(1280, 720, 1, 4);
    take();
    interop.draw(pixels.data(), 640, 480);
    EXPECT_TRUE(sameCalls(take(), drawCalls(GL_RGBA, 1280, 720, 1, 0.75f)));
    EXPECT_EQ(interop.vars().horizontal_extent, 1);
    EXPECT_EQ(interop.vars().vertical_extent, 0.75f);
}

TEST_F(OpenGLImageInteropTest, TallerImageKeepsItsHeight) {
    std::vector<unsigned char> pixels(100 * 200);
    HostInterop interop;
    interop.init(100, 200, 1, 1);
    take();
    interop.draw(pixels.data(), 400, 400);
    EXPECT_TRUE(sameCalls(take(), drawCalls(GL_LUMINANCE, 100, 200, 0.5f, 1)));
}

TEST_F(OpenGLImageInteropTest, OneByOneViewWithASquareImageHasBothExtents1) {
    std::vector<unsigned char> pixels(64 * 64);
    HostInterop interop;
    interop.init(64, 64, 1, 1);
    interop.draw(pixels.data(), 640, 480);
    take();
    interop.draw(pixels.data(), 1, 1);
    EXPECT_TRUE(sameCalls(take(), drawCalls(GL_LUMINANCE, 64, 64, 1, 1)));
    EXPECT_EQ(interop.vars().horizontal_extent, 1);
    EXPECT_EQ(interop.vars().vertical_extent, 1);
}

TEST_F(OpenGLImageInteropTest, ViewWithoutAreaFillsTheViewport) {
    // 0 / 0 is not a number: neither wider nor taller.
    std::vector<unsigned char> pixels(64 * 64);
    HostInterop interop;
    interop.init(64, 64, 1, 1);
    take();
    interop.draw(pixels.data(), 0, 0);
    EXPECT_TRUE(sameCalls(take(), drawCalls(GL_LUMINANCE, 64, 64, 1, 1)));
}

TEST_F(OpenGLImageInteropTest, DrawOfNullMakesNoCallAndKeepsTheExtents) {
    std::vector<unsigned char> pixels(1280 * 720 * 4);
    HostInterop interop;
    interop.init(1280, 720, 1, 4);
    interop.draw(pixels.data(), 640, 480);
    take();
    interop.draw(nullptr, -1, -1);
    EXPECT_TRUE(take().empty());
    EXPECT_EQ(interop.vars().vertical_extent, 0.75f);
}

TEST_F(OpenGLImageInteropTest, DrawUploadsThePixels) {
    std::vector<unsigned char> pixels{1, 2, 3, 4, 5, 6, 7, 8};
    HostInterop interop;
    interop.init(4, 2, 1, 1);
    CallLog::instance().clear();
    interop.draw(pixels.data(), -1, -1);
    EXPECT_EQ(CallLog::instance().calls().at(2).data, pixels);
}

TEST_F(OpenGLImageInteropTest, UninitTwiceIsHarmless) {
    HostInterop interop;
    interop.init(1280, 720, 1, 4);
    interop.vars().vertical_extent = 0.75f;
    take();
    interop.uninit();
    EXPECT_TRUE(sameCalls(take(), {bind(1), "glDeleteTextures(1, 1)", bind(0)}));
    const OpenGLImageInteropVars& vars = interop.vars();
    EXPECT_EQ(vars.texture, 0u);
    EXPECT_EQ(vars.width, 0);
    EXPECT_EQ(vars.height, 0);
    EXPECT_EQ(vars.byte_size, 0);
    EXPECT_EQ(vars.element_size, 0);
    EXPECT_EQ(vars.channels, 0);
    EXPECT_FALSE(vars.initialised);
    EXPECT_EQ(vars.vertical_extent, 0.75f) << "stays until the next draw";
    interop.uninit();
    EXPECT_TRUE(take().empty());
    // And it can be used again.
    interop.init(4, 4, 1, 1);
    EXPECT_EQ(interop.vars().texture, 2u);
}

TEST_F(OpenGLImageInteropTest, DestructorReleasesNothing) {
    {
        HostInterop interop;
        interop.init(4, 4, 1, 1);
        take();
    }
    EXPECT_TRUE(take().empty());
}

TEST_F(OpenGLImageInteropCUDAWithoutDevice, InitMakesTheSameCallsAndSucceeds) {
    DeviceInterop interop;
    EXPECT_TRUE(interop.init(1280, 720, 1, 4));
    Calls expected = initCalls(GL_RGBA, 1280, 720);
    expected.push_back(callText("glEnable", GL_ALPHA_TEST));
    EXPECT_TRUE(sameCalls(take(), expected));
    EXPECT_TRUE(interop.vars().initialised);
    EXPECT_EQ(interop.vars().resource, nullptr);
    EXPECT_EQ(interop.vars().byte_size, 1280 * 720 * 4);
}

TEST_F(OpenGLImageInteropCUDAWithoutDevice, ThreeChannelsAreRgbOnTheHostAndGreyOnTheDevicePath) {
    HostInterop host;
    host.init(8, 4, 1, 3);
    EXPECT_TRUE(sameCalls(take(), initCalls(GL_RGB, 8, 4)));
    test::resetGlDouble();
    DeviceInterop device;
    device.init(8, 4, 1, 3);
    Calls expected = initCalls(GL_LUMINANCE, 8, 4);
    expected.push_back(callText("glEnable", GL_ALPHA_TEST));
    EXPECT_TRUE(sameCalls(take(), expected));
}

TEST_F(OpenGLImageInteropCUDAWithoutDevice, DrawUploadsFromHostMemory) {
    std::vector<unsigned char> pixels(64 * 32);
    pixels[5] = 99;
    DeviceInterop interop;
    interop.init(64, 32, 1, 1);
    CallLog::instance().clear();
    interop.draw(pixels.data(), 64, 64);
    EXPECT_EQ(CallLog::instance().calls().at(2).data, pixels);
    EXPECT_TRUE(sameCalls(take(), drawCalls(GL_LUMINANCE, 64, 32, 1, 0.5f)));
    EXPECT_EQ(interop.vars().horizontal_extent, 1);
    EXPECT_EQ(interop.vars().vertical_extent, 0.5f);
}

TEST_F(OpenGLImageInteropCUDAWithoutDevice, UninitTwiceIsHarmlessAndSucceeds) {
    DeviceInterop interop;
    EXPECT_TRUE(interop.uninit());
    EXPECT_TRUE(take().empty());
    interop.init(64, 32, 1, 1);
    take();
    EXPECT_TRUE(interop.uninit());
    EXPECT_TRUE(sameCalls(take(), {bind(1), "glDeleteTextures(1, 1)", bind(0)}));
    EXPECT_FALSE(interop.vars().initialised);
    EXPECT_EQ(interop.vars().width, 0);
    EXPECT_TRUE(interop.uninit());
    EXPECT_TRUE(take().empty());
}

TEST_F(OpenGLImageInteropCUDAWithoutDevice, DestructorReleasesTheTexture) {
    {
        DeviceInterop interop;
        interop.init(64, 32, 1, 1);
        take();
    }
    EXPECT_TRUE(sameCalls(take(), {bind(1), "glDeleteTextures(1, 1)", bind(0)}));
}

}  // namespace
}  // namespace kova
