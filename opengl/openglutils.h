#pragma once

#include <vector>

#include "sdk/size.h"

namespace kova {

/// Immediate-mode drawing with the fixed-function pipeline, in the matrices that are current.
///
/// Stateless. The operations leave the GL state as they found it, except for the current colour,
/// normal, line width and point size, which they set and do not restore. Colours are RGB in 0..1,
/// `lw` is a line width and `ps` a point size, both in pixels. To be called with a context current.
class OpenGLUtils {
public:
    /// Clears colour and depth of the back buffer and loads the identity into the current matrix.
    /// The clear colour is set after the clear: a new colour shows from the next call on.
    static void clear(float r, float g, float b, float a);

    /// A segment from p1, in colour c1, to p2, in colour c2.
    static void drawLine_2d(Size2_<float> p1, Size2_<float> p2, float lw, Size3_<float> c1,
                            Size3_<float> c2);
    static void drawLine_3d(Size3_<float> p1, Size3_<float> p2, float lw, Size3_<float> c1,
                            Size3_<float> c2);

    /// The closed outline of four corners. @param corners four points; null draws nothing
    static void drawPlane_3d(Size3_<float>* corners, float lw, Size3_<float> c1);

    /// The frustum of a pinhole camera that looks down +z from the origin: near rectangle in c1,
    /// far rectangle in c2, rays from the origin (c1) to the far corners (c2).
    ///
    /// @param fx, fy         focal lengths [px]; not positive: everything collapses to the origin
    /// @param zNear, zFar    depths of the rectangles, in scene units
    /// @param width, height  image size [px]
    static void drawFOV_3d(float fx, float fy, float zNear, float zFar, int width, int height,
                           float lw, Size3_<float> c1, Size3_<float> c2);

    /// A wireframe box for a stereo camera's body, centred midway along a baseline that runs from
    /// the origin to (xSpan, 0, 0).
    static void drawCamera_3d(float boxWidth, float xSpan, float boxHeight, float boxDepth,
                              float lw, Size3_<float> c1);

    /// Three segments of the given length from the origin along x, y and z.
    static void drawAxes_3d(float length, float lw, Size3_<float> cx, Size3_<float> cy,
                            Size3_<float> cz);

    /// A filled polygon through the points in order; nothing for fewer than 3.
    static void drawPoly_2d(std::vector<Size2_<float>> pts, float lw, Size3_<float> c1);
    static void drawPoly_3d(std::vector<Size3_<float>> pts, float lw, Size3_<float> c1);

    /// A shaft from `start` (c1) to `end` (c2) with a filled triangle as head, 0.3 rad to each
    /// side.
    static void drawArrow_2d(Size2_<float> start, Size2_<float> end, float headLength, float lw,
                             Size3_<float> c1, Size3_<float> c2);

    /// The same in space; the head is an open four-sided pyramid. The matrix is turned and turned
    /// back, not pushed: it comes back up to rounding.
    static void drawArrow_3d(Size3_<float> start, Size3_<float> end, float headLength, float lw,
                             Size3_<float> c1, Size3_<float> c2);

    /// Dashes lines by a 16-bit pattern, or stops it (the pattern is left alone then).
    static void enableStipple(bool on, int pattern);

    static void drawPoint_2d(Size2_<float> p, float ps, Size3_<float> c1);
    static void drawPoint_3d(Size3_<float> p, float ps, Size3_<float> c1);
    /// All points in one batch, which is issued even when empty.
    static void drawPoints_2d(std::vector<Size2_<float>> pts, float ps, Size3_<float> c1);
    static void drawPoints_3d(std::vector<Size3_<float>> pts, float ps, Size3_<float> c1);

    /// A triangle mesh in one colour; as many triangles as there are normals.
    ///
    /// @param scale       factor on every coordinate
    /// @param renderMode  GL_SELECT loads the number of the triangle, from 1, as picking name
    /// @throws std::out_of_range at the first triangle that lacks a corner; those before are drawn
    static void drawStlModel(std::vector<Size3_<float>> normals,
                             std::vector<Size3_<float>> firstVertices,
                             std::vector<Size3_<float>> secondVertices,
                             std::vector<Size3_<float>> thirdVertices, float scale,
                             Size3_<float> colour, unsigned int renderMode);

    /// An indexed mesh or, without faces, a set of points.
    ///
    /// @param colours     RGBA per vertex, 0..255; empty: the current colour
    /// @param faces       three indices into `vertices` each; empty: every vertex is a point
    /// @param renderMode  GL_SELECT loads the number of the face or point, from 1, as picking name
    /// @throws std::out_of_range at the first index without vertex or colour
    static void drawPlyModel(std::vector<Size3_<float>> vertices,
                             std::vector<Size4_<unsigned char>> colours,
                             std::vector<Size3_<int>> faces, float scale, unsigned int renderMode);
};

}  // namespace kova
