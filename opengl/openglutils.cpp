#include "opengl/openglutils.h"

#include <GL/gl.h>

namespace kova {

void OpenGLUtils::clear(float r, float g, float b, float a) {
    glDrawBuffer(GL_BACK);
    glLoadIdentity();
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glClearColor(r, g, b, a);
}

void OpenGLUtils::enableStipple(bool on, int pattern) {
    if (on) {
        glEnable(GL_LINE_STIPPLE);
        glLineStipple(1, static_cast<GLushort>(pattern));
    } else {
        glDisable(GL_LINE_STIPPLE);
    }
}

}  // namespace kova
