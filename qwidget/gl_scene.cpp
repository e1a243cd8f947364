#include "qwidget/gl_scene.h"

#include <GL/gl.h>

namespace kova::qwidget {

void initLitScene() {
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_MULTISAMPLE);
    const GLfloat specular[4] = {1, 1, 1, 1};
    glMaterialfv(GL_FRONT, GL_SPECULAR, specular);
    const GLfloat shininess[1] = {128};
    glMaterialfv(GL_FRONT, GL_SHININESS, shininess);
    const GLfloat position[4] = {1, 1, 1, 1};
    glLightfv(GL_LIGHT0, GL_POSITION, position);
    const GLfloat ambient[4] = {0.2f, 0.2f, 0.2f, 1};
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, ambient);
    glEnable(GL_LIGHT0);
    glEnable(GL_LIGHTING);
    glEnable(GL_COLOR_MATERIAL);
}

void enableRefusedCapability() {
    glEnable(GL_DOUBLE);
}

void setRotation(float* matrix, const float* q) {
    if (!q)
        return;
    const float x = q[0];
    const float y = q[1];
    const float z = q[2];
    const float w = q[3];
    matrix[0] = 1 - 2 * (y * y + z * z);
    matrix[1] = 2 * (x * y + w * z);
    matrix[2] = 2 * (x * z - w * y);
    matrix[4] = 2 * (x * y - w * z);
    matrix[5] = 1 - 2 * (x * x + z * z);
    matrix[6] = 2 * (y * z + w * x);
    matrix[8] = 2 * (x * z + w * y);
    matrix[9] = 2 * (y * z - w * x);
    matrix[10] = 1 - 2 * (x * x + y * y);
}

}  // namespace kova::qwidget
