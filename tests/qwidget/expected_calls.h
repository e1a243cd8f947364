#pragma once

#include <GL/gl.h>

#include <string>
#include <vector>

#include "sdk/size.h"
#include "tests/support/gl_double.h"

// What the drawing primitives send to GL, for the tests of the views that draw with them.

namespace kova::test {

using Calls = std::vector<std::string>;

inline void append(Calls& calls, const Calls& more) {
    calls.insert(calls.end(), more.begin(), more.end());
}

inline std::string colourCall(const Size3_<float>& c) {
    return callText("glColor3f", c.x, c.y, c.z);
}

inline Calls clearCalls() {
    return {callText("glDrawBuffer", GL_BACK), "glLoadIdentity()",
            callText("glClear", GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT),
            "glClearColor(0, 0, 0, 1)"};
}

inline Calls lineCalls(const Size2_<float>& a, const Size2_<float>& b, float lw,
                       const Size3_<float>& c1, const Size3_<float>& c2) {
    return {callText("glLineWidth", lw),
            callText("glBegin", GL_LINES),
            colourCall(c1),
            callText("glVertex2f", a.x, a.y),
            colourCall(c2),
            callText("glVertex2f", b.x, b.y),
            "glEnd()"};
}

inline Calls lineCalls(const Size3_<float>& a, const Size3_<float>& b, float lw,
                       const Size3_<float>& c1, const Size3_<float>& c2) {
    return {callText("glLineWidth", lw),
            callText("glBegin", GL_LINES),
            colourCall(c1),
            callText("glVertex3f", a.x, a.y, a.z),
            colourCall(c2),
            callText("glVertex3f", b.x, b.y, b.z),
            "glEnd()"};
}

inline Calls axesCalls() {
    Calls calls = lineCalls(Size3_<float>{0, 0, 0}, {50, 0, 0}, 1, {1, 0, 0}, {1, 0, 0});
    append(calls, lineCalls(Size3_<float>{0, 0, 0}, {0, 50, 0}, 1, {0, 1, 0}, {0, 1, 0}));
    append(calls, lineCalls(Size3_<float>{0, 0, 0}, {0, 0, 50}, 1, {0, 0, 1}, {0, 0, 1}));
    return calls;
}

/// The matrices of a view camera at the origin that looks down -z with its eye `offset` behind, in
/// a view of the given size.
Calls cameraCalls(float offset, int width, int height);

/// The camera body of the stand-in, in light grey.
Calls bodyCalls();

/// The calls of the common set-up of lights and materials.
Calls litSceneCalls();

}  // namespace kova::test
