#include "opengl/opengl_image_quad.h"

#include <GL/gl.h>

namespace kova {

QuadExtents fitQuad(int image_width, int image_height, int view_width, int view_height) {
    QuadExtents extents;
    if (view_width == -1 || view_height == -1)
        return extents;
    const float view_aspect = static_cast<float>(view_width) / static_cast<float>(view_height);
    const float image_aspect = static_cast<float>(image_width) / static_cast<float>(image_height);
    if (image_aspect > view_aspect)
        extents.vertical = view_aspect / image_aspect;
    else if (image_aspect < view_aspect)
        extents.horizontal = image_aspect / view_aspect;
    return extents;
}

void drawTexturedQuad(const QuadExtents& extents) {
    const float h = extents.horizontal;
    const float v = extents.vertical;
    glBegin(GL_QUADS);
    glColor3f(1, 1, 1);
    glTexCoord2f(0, 1);
    glVertex2f(-h, -v);
    glTexCoord2f(1, 1);
    glVertex2f(h, -v);
    glTexCoord2f(1, 0);
    glVertex2f(h, v);
    glTexCoord2f(0, 0);
    glVertex2f(-h, v);
    glEnd();
    glBindTexture(GL_TEXTURE_2D, 0);
    glDisable(GL_TEXTURE_2D);
}

}  // namespace kova
