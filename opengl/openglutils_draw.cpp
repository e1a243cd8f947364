#include <GL/gl.h>

#include <array>
#include <cmath>
#include <cstddef>

#include "opengl/openglutils.h"

namespace kova {
namespace {

using Point2 = Size2_<float>;
using Point3 = Size3_<float>;
using Corners = std::array<Point3, 4>;

// Half angle of an arrow's head [rad].
constexpr double kHeadAngle = 0.3;

void setColour(const Point3& c) {
    glColor3f(c.x, c.y, c.z);
}

void putVertex(const Point3& p, float scale) {
    if (scale != 1.0f)
        glVertex3f(p.x * scale, p.y * scale, p.z * scale);
    else
        glVertex3f(p.x, p.y, p.z);
}

void drawLoop(const Corners& corners, float lw, const Point3& colour) {
    for (std::size_t i = 0; i < 4; ++i)
        OpenGLUtils::drawLine_3d(corners[i], corners[(i + 1) % 4], lw, colour, colour);
}

// The rectangle that a frustum cuts out of the plane at depth d.
Corners frustumSection(float kx, float ky, float d) {
    return {
        {{-d * kx, -d * ky, d}, {-d * kx, d * ky, d}, {d * kx, d * ky, d}, {d * kx, -d * ky, d}}};
}

// An index that is negative wraps to one that at() refuses, as it refuses every other bad one.
std::size_t meshIndex(int index) {
    return static_cast<std::size_t>(index);
}

}  // namespace

void OpenGLUtils::drawLine_2d(Point2 p1, Point2 p2, float lw, Point3 c1, Point3 c2) {
    glLineWidth(lw);
    glBegin(GL_LINES);
    setColour(c1);
    glVertex2f(p1.x, p1.y);
    setColour(c2);
    glVertex2f(p2.x, p2.y);
    glEnd();
}

void OpenGLUtils::drawLine_3d(Point3 p1, Point3 p2, float lw, Point3 c1, Point3 c2) {
    glLineWidth(lw);
    glBegin(GL_LINES);
    setColour(c1);
    glVertex3f(p1.x, p1.y, p1.z);
    setColour(c2);
    glVertex3f(p2.x, p2.y, p2.z);
    glEnd();
}

void OpenGLUtils::drawPlane_3d(Point3* corners, float lw, Point3 c1) {
    if (!corners)
        return;
    drawLoop({{corners[0], corners[1], corners[2], corners[3]}}, lw, c1);
}

void OpenGLUtils::drawFOV_3d(float fx, float fy, float zNear, float zFar, int width, int height,
                             float lw, Point3 c1, Point3 c2) {
    Corners near_corners{};
    Corners far_corners{};
    if (fx > 0 && fy > 0) {
        const float kx = (static_cast<float>(width) * 0.5f) / fx;
        const float ky = (static_cast<float>(height) * 0.5f) / fy;
        near_corners = frustumSection(kx, ky, zNear);
        far_corners = frustumSection(kx, ky, zFar);
    }
    drawLoop(near_corners, lw, c1);
    drawLoop(far_corners, lw, c2);
    for (const Point3& corner : far_corners) drawLine_3d({0, 0, 0}, corner, lw, c1, c2);
}

void OpenGLUtils::drawCamera_3d(float boxWidth, float xSpan, float boxHeight, float boxDepth,
                                float lw, Point3 c1) {
    const float x_min = (xSpan - boxWidth) / 2;
    const float x_max = (xSpan + boxWidth) / 2;
    const float h = boxHeight / 2;
    const float d = boxDepth / 2;
    const Corners front{{{x_min, -h, d}, {x_min, h, d}, {x_max, h, d}, {x_max, -h, d}}};
    const Corners back{{{x_min, -h, -d}, {x_min, h, -d}, {x_max, h, -d}, {x_max, -h, -d}}};
    drawLoop(front, lw, c1);
    drawLoop(back, lw, c1);
    for (std::size_t i = 0; i < 4; ++i) drawLine_3d(front[i], back[i], lw, c1, c1);
}

void OpenGLUtils::drawAxes_3d(float length, float lw, Point3 cx, Point3 cy, Point3 cz) {
    drawLine_3d({0, 0, 0}, {length, 0, 0}, lw, cx, cx);
    drawLine_3d({0, 0, 0}, {0, length, 0}, lw, cy, cy);
    drawLine_3d({0, 0, 0}, {0, 0, length}, lw, cz, cz);
}

void OpenGLUtils::drawPoly_2d(std::vector<Point2> pts, float lw, Point3 c1) {
    if (pts.size() < 3)
        return;
    glLineWidth(lw);
    glBegin(GL_POLYGON);
    setColour(c1);
    for (const Point2& p : pts) glVertex2f(p.x, p.y);
    glEnd();
}

void OpenGLUtils::drawPoly_3d(std::vector<Point3> pts, float lw, Point3 c1) {
    if (pts.size() < 3)
        return;
    glLineWidth(lw);
    glBegin(GL_POLYGON);
    setColour(c1);
    for (const Point3& p : pts) glVertex3f(p.x, p.y, p.z);
    glEnd();
}

void OpenGLUtils::drawArrow_2d(Point2 start, Point2 end, float headLength, float lw, Point3 c1,
                               Point3 c2) {
    drawLine_2d(start, end, lw, c1, c2);

    const double back =
        std::atan2(static_cast<double>(start.y) - end.y, static_cast<double>(start.x) - end.x);
    glLineWidth(lw);
    glBegin(GL_TRIANGLES);
    setColour(c1);
    for (const double angle : {back + kHeadAngle, back - kHeadAngle})
        glVertex2f(static_cast<float>(end.x + headLength * std::cos(angle)),
                   static_cast<float>(end.y + headLength * std::sin(angle)));
    setColour(c2);
    glVertex2f(end.x, end.y);
    glEnd();
}

void OpenGLUtils::drawArrow_3d(Point3 start, Point3 end, float headLength, float lw, Point3 c1,
                               Point3 c2) {
    drawLine_3d(start, end, lw, c1, c2);

    const double vx = static_cast<double>(end.x) - start.x;
    const double vy = static_cast<double>(end.y) - start.y;
    const double vz = static_cast<double>(end.z) - start.z;
    const double length = std::sqrt(vx * vx + vy * vy + vz * vz);
    // An arrow without length has no direction: its head stays along +x, as without a turn.
    const double degrees = length > 0 ? std::acos(vx / length) * 180.0 / M_PI : 0.0;
    double axis[3] = {1, 0, 0};
    const double across = std::sqrt(vz * vz + vy * vy);
    if (across > 0) {
        axis[0] = 0;
        axis[1] = -vz / across;
        axis[2] = vy / across;
    }

    glTranslatef(end.x, end.y, end.z);
    glRotated(degrees, axis[0], axis[1], axis[2]);
    const auto back = static_cast<float>(-headLength * std::cos(kHeadAngle));
    const auto side = static_cast<float>(headLength * std::sin(kHeadAngle));
    glLineWidth(lw);
    glBegin(GL_TRIANGLE_FAN);
    setColour(c2);
    glVertex3f(0, 0, 0);
    setColour(c1);
    glVertex3f(back, side, 0);
    glVertex3f(back, 0, side);
    glVertex3f(back, -side, 0);
    glVertex3f(back, 0, -side);
    glVertex3f(back, side, 0);
    glEnd();
    glRotated(degrees, -axis[0], -axis[1], -axis[2]);
    glTranslatef(-end.x, -end.y, -end.z);
}

void OpenGLUtils::drawPoint_2d(Point2 p, float ps, Point3 c1) {
    glPointSize(ps);
    glBegin(GL_POINTS);
    setColour(c1);
    glVertex2f(p.x, p.y);
    glEnd();
}

void OpenGLUtils::drawPoint_3d(Point3 p, float ps, Point3 c1) {
    glPointSize(ps);
    glBegin(GL_POINTS);
    setColour(c1);
    glVertex3f(p.x, p.y, p.z);
    glEnd();
}

void OpenGLUtils::drawPoints_2d(std::vector<Point2> pts, float ps, Point3 c1) {
    glPointSize(ps);
    glBegin(GL_POINTS);
    setColour(c1);
    for (const Point2& p : pts) glVertex2f(p.x, p.y);
    glEnd();
}

void OpenGLUtils::drawPoints_3d(std::vector<Point3> pts, float ps, Point3 c1) {
    glPointSize(ps);
    glBegin(GL_POINTS);
    setColour(c1);
    for (const Point3& p : pts) glVertex3f(p.x, p.y, p.z);
    glEnd();
}

void OpenGLUtils::drawStlModel(std::vector<Point3> normals, std::vector<Point3> firstVertices,
                               std::vector<Point3> secondVertices,
                               std::vector<Point3> thirdVertices, float scale, Point3 colour,
                               unsigned int renderMode) {
    for (std::size_t i = 0; i < normals.size(); ++i) {
        // Fetched before glBegin, so that a missing corner does not leave a batch open.
        const Point3 first = firstVertices.at(i);
        const Point3 second = secondVertices.at(i);
        const Point3 third = thirdVertices.at(i);
        glNormal3fv(&normals[i].x);
        if (renderMode == GL_SELECT)
            glLoadName(static_cast<GLuint>(i + 1));
        glBegin(GL_TRIANGLES);
        setColour(colour);
        putVertex(first, scale);
        putVertex(second, scale);
        putVertex(third, scale);
        glEnd();
    }
}

namespace {

// What one face or point of a mesh needs, fetched before glBegin.
struct MeshVertex {
    Point3 position;
    Size4_<unsigned char> colour;
};

MeshVertex fetch(const std::vector<Point3>& vertices,
                 const std::vector<Size4_<unsigned char>>& colours, std::size_t index) {
    MeshVertex vertex;
    if (!colours.empty())
        vertex.colour = colours.at(index);
    vertex.position = vertices.at(index);
    return vertex;
}

void put(const MeshVertex& vertex, bool coloured, float scale) {
    if (coloured)
        glColor4ub(vertex.colour.x, vertex.colour.y, vertex.colour.z, vertex.colour.w);
    putVertex(vertex.position, scale);
}

}  // namespace

void OpenGLUtils::drawPlyModel(std::vector<Point3> vertices,
                               std::vector<Size4_<unsigned char>> colours,
                               std::vector<Size3_<int>> faces, float scale,
                               unsigned int renderMode) {
    const bool coloured = !colours.empty();
    for (std::size_t i = 0; i < faces.size(); ++i) {
        const MeshVertex corners[3] = {fetch(vertices, colours, meshIndex(faces[i].x)),
                                       fetch(vertices, colours, meshIndex(faces[i].y)),
                                       fetch(vertices, colours, meshIndex(faces[i].z))};
        if (renderMode == GL_SELECT)
            glLoadName(static_cast<GLuint>(i + 1));
        glBegin(GL_TRIANGLES);
        for (const MeshVertex& corner : corners) put(corner, coloured, scale);
        glEnd();
    }
    if (!faces.empty())
        return;
    for (std::size_t i = 0; i < vertices.size(); ++i) {
        const MeshVertex vertex = fetch(vertices, colours, i);
        if (renderMode == GL_SELECT)
            glLoadName(static_cast<GLuint>(i + 1));
        glBegin(GL_POINTS);
        put(vertex, coloured, scale);
        glEnd();
    }
}

}  // namespace kova
