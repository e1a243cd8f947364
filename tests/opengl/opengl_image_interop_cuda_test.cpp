#include "opengl/opengl_image_interop_cuda.h"

#include <GL/gl.h>
#include <gtest/gtest.h>

#include "opengl/opengl_image_interop_cuda_p.h"
#include "tests/support/cuda_double.h"
#include "tests/support/gl_double.h"

// The device path, call by call, with a device that a test controls.

namespace kova {
namespace {

using test::CallLog;
using test::callText;
using test::sameCalls;
using Calls = std::vector<std::string>;

class Interop : public OpenGLImageInteropCUDA {
public:
    OpenGLImageInteropCUDAVars& vars() { return *vars_; }
};

class OpenGLImageInteropCUDATest : public testing::Test {
protected:
    void SetUp() override {
        test::setCudaScript({});
        test::resetGlDouble();
    }
    static Calls take() { return CallLog::instance().take(); }
};

std::string bind(unsigned int texture) {
    return callText("glBindTexture", GL_TEXTURE_2D, texture);
}

std::string texImage(GLenum format, const char* data) {
    return callText("glTexImage2D", GL_TEXTURE_2D, 0, format, 64, 32, 0, format, GL_UNSIGNED_BYTE,
                    data);
}

Calls initCalls(GLenum format, unsigned int texture, bool device) {
    Calls calls{"glGenTextures(1)",
                bind(texture),
                callText("glTexParameteri", GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR),
                callText("glTexParameteri", GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR),
                texImage(format, "null"),
                bind(0),
                "cudaGetDeviceCount()"};
    if (device)  // 2: the texture is only ever written, whole
        calls.push_back(callText("cudaGraphicsGLRegisterImage", texture, GL_TEXTURE_2D, 2));
    calls.push_back(callText("glEnable", GL_ALPHA_TEST));
    return calls;
}

const Calls kQuad{callText("glBegin", GL_QUADS),
                  "glColor3f(1, 1, 1)",
                  "glTexCoord2f(0, 1)",
                  "glVertex2f(-1, -0.5)",
                  "glTexCoord2f(1, 1)",
                  "glVertex2f(1, -0.5)",
                  "glTexCoord2f(1, 0)",
                  "glVertex2f(1, 0.5)",
                  "glTexCoord2f(0, 0)",
                  "glVertex2f(-1, 0.5)",
                  "glEnd()",
                  bind(0),
                  callText("glDisable", GL_TEXTURE_2D)};

Calls deviceDraw(const char* resource, const void* data, int bytes) {
    Calls calls{callText("cudaGraphicsMapResources", 1, resource, "null"),
                callText("cudaGraphicsSubResourceGetMappedArray", resource, 0, 0),
                callText("cudaMemcpyToArray", "@2000", 0, 0, data, bytes, 3),
                callText("cudaGraphicsUnmapResources", 1, resource, "null"),
                callText("glEnable", GL_TEXTURE_2D),
                bind(1)};
    calls.insert(calls.end(), kQuad.begin(), kQuad.end());
    return calls;
}

Calls releaseCalls(const char* resource, unsigned int texture) {
    return {callText("cudaGraphicsUnregisterResource", resource), bind(texture),
            callText("glDeleteTextures", 1, texture), bind(0)};
}

TEST_F(OpenGLImageInteropCUDATest, StartsWithNothing) {
    Interop interop;
    EXPECT_EQ(interop.vars().texture, 0u);
    EXPECT_EQ(interop.vars().resource, nullptr);
    EXPECT_EQ(interop.vars().byte_size, 0);
    EXPECT_FALSE(interop.vars().initialised);
    EXPECT_EQ(interop.vars().vertical_extent, 1);
    EXPECT_EQ(interop.vars().horizontal_extent, 1);
    EXPECT_TRUE(take().empty());
}

TEST_F(OpenGLImageInteropCUDATest, InitRegistersTheTexture) {
    Interop interop;
    EXPECT_TRUE(interop.init(64, 32, 1, 4));
    EXPECT_TRUE(sameCalls(take(), initCalls(GL_RGBA, 1, true)));
    EXPECT_TRUE(interop.vars().initialised);
    EXPECT_NE(interop.vars().resource, nullptr);
    EXPECT_EQ(interop.vars().byte_size, 64 * 32 * 4);
}

TEST_F(OpenGLImageInteropCUDATest, AnythingButFourChannelsIsGrey) {
    for (const int channels : {1, 3, 2}) {
        test::resetGlDouble();
        Interop interop;
        interop.init(64, 32, 1, channels);
        EXPECT_TRUE(sameCalls(take(), initCalls(GL_LUMINANCE, 1, true))) << channels;
    }
}

TEST_F(OpenGLImageInteropCUDATest, DrawCopiesOnTheDevice) {
    Interop interop;
    interop.init(64, 32, 1, 4);
    take();
    unsigned char device_memory = 0;  // only its address counts
    interop.draw(&device_memory, 64, 64);
    EXPECT_TRUE(sameCalls(take(), deviceDraw("@1000", &device_memory, 64 * 32 * 4)));
    EXPECT_EQ(interop.vars().vertical_extent, 0.5f);
    EXPECT_EQ(interop.vars().horizontal_extent, 1);
}

TEST_F(OpenGLImageInteropCUDATest, DrawDoesNotAskForNull) {
    Interop interop;
    interop.init(64, 32, 1, 4);
    take();
    interop.draw(nullptr, 64, 64);
    EXPECT_TRUE(sameCalls(take(), deviceDraw("@1000", nullptr, 64 * 32 * 4)));
}

TEST_F(OpenGLImageInteropCUDATest, FailedRegistrationStillCountsAsInitialised) {
    test::CudaScript script;
    script.register_fails = true;
    test::setCudaScript(script);
    Interop interop;
    EXPECT_FALSE(interop.init(64, 32, 1, 4));
    EXPECT_TRUE(sameCalls(take(), initCalls(GL_RGBA, 1, true)));
    EXPECT_TRUE(interop.vars().initialised);
    // The copy goes to a resource that is not there; nobody looks at the result.
    unsigned char device_memory = 0;
    interop.draw(&device_memory, 64, 64);
    EXPECT_TRUE(sameCalls(take(), deviceDraw("null", &device_memory, 64 * 32 * 4)));
}

TEST_F(OpenGLImageInteropCUDATest, UninitUnregistersFirstAndTwiceIsHarmless) {
    Interop interop;
    interop.init(64, 32, 1, 4);
    take();
    EXPECT_TRUE(interop.uninit());
    EXPECT_TRUE(sameCalls(take(), releaseCalls("@1000", 1)));
    EXPECT_EQ(interop.vars().texture, 0u);
    EXPECT_EQ(interop.vars().width, 0);
    EXPECT_EQ(interop.vars().height, 0);
    EXPECT_EQ(interop.vars().byte_size, 0);
    EXPECT_EQ(interop.vars().element_size, 0);
    EXPECT_EQ(interop.vars().channels, 0);
    EXPECT_FALSE(interop.vars().initialised);
    EXPECT_NE(interop.vars().resource, nullptr) << "the handle is left as it is";
    EXPECT_TRUE(interop.uninit());
    EXPECT_TRUE(take().empty());
}

TEST_F(OpenGLImageInteropCUDATest, FailedUnregistrationIsTold) {
    Interop interop;
    interop.init(64, 32, 1, 4);
    take();
    test::CudaScript script;
    script.unregister_fails = true;
    test::setCudaScript(script);
    EXPECT_FALSE(interop.uninit());
    EXPECT_TRUE(sameCalls(take(), releaseCalls("@1000", 1)));
    EXPECT_FALSE(interop.vars().initialised);
    EXPECT_TRUE(interop.uninit());
}

TEST_F(OpenGLImageInteropCUDATest, DestructorReleasesAsUninitDoes) {
    {
        Interop interop;
        interop.init(64, 32, 1, 4);
        take();
    }
    EXPECT_TRUE(sameCalls(take(), releaseCalls("@1000", 1)));
    { Interop never_initialised; }
    EXPECT_TRUE(take().empty());
}

TEST_F(OpenGLImageInteropCUDATest, BuiltWithCudaButWithoutDeviceTakesHostMemory) {
    test::CudaScript script;
    script.devices = 0;
    test::setCudaScript(script);
    Interop interop;
    EXPECT_TRUE(interop.init(64, 32, 1, 4));
    EXPECT_TRUE(sameCalls(take(), initCalls(GL_RGBA, 1, false)));
    std::vector<unsigned char> pixels(64 * 32 * 4, 9);
    interop.draw(pixels.data(), 64, 64);
    EXPECT_EQ(CallLog::instance().calls().at(2).data, pixels);
    Calls expected{callText("glEnable", GL_TEXTURE_2D), bind(1), texImage(GL_RGBA, "data")};
    expected.insert(expected.end(), kQuad.begin(), kQuad.end());
    EXPECT_TRUE(sameCalls(take(), expected));
    EXPECT_TRUE(interop.uninit());
    EXPECT_TRUE(sameCalls(take(), {bind(1), "glDeleteTextures(1, 1)", bind(0)}));
}

}  // namespace
}  // namespace kova
