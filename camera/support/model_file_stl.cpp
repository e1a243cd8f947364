#include "sdk/model_file_stl.h"

#include <cmath>
#include <cstddef>
#include <vector>

namespace kova::data {

namespace {

using Point = Size3_<float>;

// A bar-shaped body that holds two lenses at the usual distance of 120 mm; lengths in mm.
constexpr float kBaseline = 120.0f;
constexpr float kBodyWidth = 160.0f;
constexpr float kBodyHeight = 34.0f;
constexpr float kBodyFront = -4.0f;  // the lenses stand out of the body, up to their centres
constexpr float kBodyBack = -32.0f;
constexpr float kEdge = 2.0f;  // bevel of front and back edge
constexpr float kLensRadius = 11.0f;
constexpr float kGlassRadius = 7.5f;
constexpr float kLensFront = 4.0f;
constexpr float kGlassDepth = 0.5f;
constexpr int kSegments = 32;
constexpr float kPi = 3.14159265358979f;

struct Mesh {
    std::vector<Point> normals, first, second, third;

    /// A triangle whose corners run counter-clockwise seen from outside.
    void triangle(Point a, Point b, Point c) {
        const Point u{b.x - a.x, b.y - a.y, b.z - a.z};
        const Point v{c.x - a.x, c.y - a.y, c.z - a.z};
        const Point n{u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x};
        const float length = std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z);
        normals.push_back({n.x / length, n.y / length, n.z / length});
        first.push_back(a);
        second.push_back(b);
        third.push_back(c);
    }
};

using Ring = std::vector<Point>;

/// Closes the gap between two rings of equally many points. Both run counter-clockwise seen from
/// the front (from +z); `back` is passed first.
void skin(Mesh& mesh, const Ring& back, const Ring& front) {
    for (std::size_t i = 0; i < back.size(); ++i) {
        const std::size_t j = (i + 1) % back.size();
        mesh.triangle(back[i], back[j], front[j]);
        mesh.triangle(back[i], front[j], front[i]);
    }
}

/// Fills a ring from its centre; `towards_front` says to which side the face looks.
void cap(Mesh& mesh, const Ring& ring, bool towards_front) {
    Point centre;
    for (const Point& p : ring) {
        centre.x += p.x / static_cast<float>(ring.size());
        centre.y += p.y / static_cast<float>(ring.size());
        centre.z += p.z / static_cast<float>(ring.size());
    }
    for (std::size_t i = 0; i < ring.size(); ++i) {
        const Point& a = ring[i];
        const Point& b = ring[(i + 1) % ring.size()];
        if (towards_front)
            mesh.triangle(centre, a, b);
        else
            mesh.triangle(centre, b, a);
    }
}

Ring circle(float cx, float radius, float z) {
    Ring ring;
    for (int i = 0; i < kSegments; ++i) {
        const float a = 2 * kPi * static_cast<float>(i) / kSegments;
        ring.push_back({cx + radius * std::cos(a), radius * std::sin(a), z});
    }
    return ring;
}

/// Outline of the body: a bar with half-round ends, `inset` smaller all round.
Ring bar(float inset, float z) {
    const float radius = kBodyHeight / 2 - inset;
    const float half = (kBodyWidth - kBodyHeight) / 2;
    Ring ring;
    for (int i = 0; i <= kSegments; ++i) {
        const float a = -kPi / 2 + 2 * kPi * static_cast<float>(i) / kSegments;
        const float middle = kBaseline / 2 + (i <= kSegments / 2 ? half : -half);
        ring.push_back({middle + radius * std::cos(a), radius * std::sin(a), z});
        if (i == kSegments / 2)  // the top of the left end begins where the right one's ends
            ring.push_back({kBaseline / 2 - half + radius * std::cos(a), radius * std::sin(a), z});
    }
    return ring;
}

void body(Mesh& mesh) {
    const Ring back = bar(kEdge, kBodyBack);
    const Ring back_edge = bar(0, kBodyBack + kEdge);
    const Ring front_edge = bar(0, kBodyFront - kEdge);
    const Ring front = bar(kEdge, kBodyFront);
    cap(mesh, back, false);
    skin(mesh, back, back_edge);
    skin(mesh, back_edge, front_edge);
    skin(mesh, front_edge, front);
    cap(mesh, front, true);
}

void lens(Mesh& mesh, float cx) {
    const Ring foot = circle(cx, kLensRadius, kBodyFront - 1);  // rooted in the body
    const Ring rim = circle(cx, kLensRadius, kLensFront);
    const Ring mouth = circle(cx, kGlassRadius + 1, kLensFront);
    const Ring glass = circle(cx, kGlassRadius, kGlassDepth);
    cap(mesh, foot, false);
    skin(mesh, foot, rim);
    skin(mesh, rim, mouth);
    skin(mesh, mouth, glass);
    cap(mesh, glass, true);
}

Mesh buildCamera() {
    Mesh mesh;
    body(mesh);
    lens(mesh, 0);
    lens(mesh, kBaseline);
    return mesh;
}

}  // namespace

void ModelFile_STL::get_quelvar_model_vector(std::vector<Size3_<float>>* normals,
                                             std::vector<Size3_<float>>* first_vertices,
                                             std::vector<Size3_<float>>* second_vertices,
                                             std::vector<Size3_<float>>* third_vertices) {
    static const Mesh mesh = buildCamera();
    if (normals)
        *normals = mesh.normals;
    if (first_vertices)
        *first_vertices = mesh.first;
    if (second_vertices)
        *second_vertices = mesh.second;
    if (third_vertices)
        *third_vertices = mesh.third;
}

}  // namespace kova::data
