#pragma once

#include <array>
#include <cmath>

namespace kova::camera {

/// A vector in mm or a direction; x right, y down, z forward.
struct Vec3 {
    float x = 0, y = 0, z = 0;
};
inline Vec3 operator+(Vec3 a, Vec3 b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline Vec3 operator-(Vec3 a, Vec3 b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline Vec3 operator*(Vec3 a, float s) {
    return {a.x * s, a.y * s, a.z * s};
}
inline float dot(Vec3 a, Vec3 b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline float length(Vec3 a) {
    return std::sqrt(dot(a, a));
}
inline Vec3 normalized(Vec3 a) {
    return a * (1.0f / length(a));
}

/// A rotation, by rows.
struct Mat3 {
    std::array<float, 9> m = {1, 0, 0, 0, 1, 0, 0, 0, 1};

    Vec3 operator*(Vec3 v) const {
        return {m[0] * v.x + m[1] * v.y + m[2] * v.z, m[3] * v.x + m[4] * v.y + m[5] * v.z,
                m[6] * v.x + m[7] * v.y + m[8] * v.z};
    }
    /// The transpose, the inverse of a rotation, times a vector.
    Vec3 transposed(Vec3 v) const {
        return {m[0] * v.x + m[3] * v.y + m[6] * v.z, m[1] * v.x + m[4] * v.y + m[7] * v.z,
                m[2] * v.x + m[5] * v.y + m[8] * v.z};
    }
    Vec3 column(int c) const { return {m[c], m[3 + c], m[6 + c]}; }
};

inline Mat3 operator*(const Mat3& a, const Mat3& b) {
    Mat3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r.m[i * 3 + j] =
                a.m[i * 3] * b.m[j] + a.m[i * 3 + 1] * b.m[3 + j] + a.m[i * 3 + 2] * b.m[6 + j];
    return r;
}

/// Turns about x; a positive angle [rad] lifts the z axis (y points down).
inline Mat3 rotationX(double angle) {
    const auto c = static_cast<float>(std::cos(angle)), s = static_cast<float>(std::sin(angle));
    return {{1, 0, 0, 0, c, -s, 0, s, c}};
}
/// Turns about y; a positive angle [rad] turns z to the right.
inline Mat3 rotationY(double angle) {
    const auto c = static_cast<float>(std::cos(angle)), s = static_cast<float>(std::sin(angle));
    return {{c, 0, s, 0, 1, 0, -s, 0, c}};
}
/// Turns about z; a positive angle [rad] turns x down, clockwise in the picture.
inline Mat3 rotationZ(double angle) {
    const auto c = static_cast<float>(std::cos(angle)), s = static_cast<float>(std::sin(angle));
    return {{c, -s, 0, s, c, 0, 0, 0, 1}};
}

/// Where a camera stands: p_world = rotation * p_camera + position.
struct Pose {
    Mat3 rotation;
    Vec3 position;
};

constexpr double kRadPerDeg = 3.14159265358979323846 / 180.0;

}  // namespace kova::camera
