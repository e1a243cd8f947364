#include "camera/simulation/intersect.h"

#include <algorithm>
#include <cmath>

#include "camera/simulation/random.h"
#include "camera/simulation/texture.h"

namespace kova::camera {

namespace {

bool intersectPatch(const Primitive& p, const BumpMap& bumps, const Vec3& origin, const Vec3& local,
                    const Vec3& direction, const Vec3& d, float t_max, RayHit& hit) {
    // Local y points into the ground: only rays that go down into it count.
    if (d.y <= 1e-6f || local.y >= 0)
        return false;
    const float inverse = 1.0f / d.y;
    float t = -local.y * inverse;
    if (t - 200.0f * inverse > t_max)
        return false;
    // Newton on the uneven surface; its slopes are smaller than those of the rays that matter.
    for (int i = 0; i < 3; ++i) {
        const float h = bumps.height(origin.x + t * direction.x, origin.z + t * direction.z);
        t = (-local.y - h) * inverse;
    }
    if (!(t > 0 && t < t_max))
        return false;
    const float x = local.x + t * d.x, z = local.z + t * d.z;
    if (std::abs(x) > p.half.x || std::abs(z) > p.half.z)
        return false;
    hit = {t, 0};
    return true;
}

bool intersectBox(const Primitive& p, const Vec3& o, const Vec3& d, float t_max, RayHit& hit) {
    const float os[3] = {o.x, o.y, o.z}, ds[3] = {d.x, d.y, d.z};
    const float half[3] = {p.half.x, p.half.y, p.half.z};
    float enter = 0, leave = t_max;
    int face = -1;
    for (int axis = 0; axis < 3; ++axis) {
        const float inverse = 1.0f / (std::abs(ds[axis]) > 1e-9f ? ds[axis] : 1e-9f);
        float t0 = (-half[axis] - os[axis]) * inverse, t1 = (half[axis] - os[axis]) * inverse;
        int side = 0;
        if (t0 > t1) {
            std::swap(t0, t1);
            side = 1;
        }
        if (t0 > enter) {
            enter = t0;
            face = axis * 2 + side;
        }
        leave = std::min(leave, t1);
        if (enter >= leave)
            return false;
    }
    if (face < 0)
        return false;  // the origin lies inside
    hit = {enter, face};
    return true;
}

bool intersectCylinder(const Primitive& p, const Vec3& o, const Vec3& d, float t_max, RayHit& hit) {
    const float a = d.x * d.x + d.z * d.z;
    const float b = o.x * d.x + o.z * d.z;
    const float c = o.x * o.x + o.z * o.z - p.half.x * p.half.x;
    const float root = b * b - a * c;
    if (root < 0)
        return false;
    if (a > 1e-12f && c > 0) {
        const float t = (-b - std::sqrt(root)) / a;
        const float y = o.y + t * d.y;
        if (t > 0 && std::abs(y) <= p.half.y) {
            if (t >= t_max)
                return false;
            hit = {t, 0};
            return true;
        }
    }
    // One of the ends, seen from outside.
    if (std::abs(o.y) <= p.half.y || std::abs(d.y) < 1e-9f)
        return false;
    const float t = ((o.y < 0 ? -p.half.y : p.half.y) - o.y) / d.y;
    const float x = o.x + t * d.x, z = o.z + t * d.z;
    if (!(t > 0 && t < t_max) || x * x + z * z > p.half.x * p.half.x)
        return false;
    hit = {t, o.y < 0 ? 1 : 2};
    return true;
}

bool intersectEllipsoid(const Primitive& p, const Vec3& origin, const Vec3& direction, float t_max,
                        RayHit& hit) {
    const Vec3 o = {origin.x / p.half.x, origin.y / p.half.y, origin.z / p.half.z};
    const Vec3 d = {direction.x / p.half.x, direction.y / p.half.y, direction.z / p.half.z};
    const float a = dot(d, d), b = dot(o, d), c = dot(o, o) - 1.0f;
    const float root = b * b - a * c;
    if (root < 0 || c <= 0)
        return false;
    const float t = (-b - std::sqrt(root)) / a;
    if (!(t > 0 && t < t_max))
        return false;
    hit = {t, 0};
    return true;
}

constexpr int kShells = 6;
constexpr float kLeafMm = 75;
constexpr float kLeafShare = 0.42f;

/// A random number for the leaf at a place inside a bush.
std::uint32_t leafAt(const Vec3& local, int shell) {
    const auto cell = [](float v) {
        return static_cast<std::uint32_t>(static_cast<int>(std::floor(v * (1.0f / kLeafMm))));
    };
    return hash(cell(local.x), cell(local.y),
                cell(local.z) + (static_cast<std::uint32_t>(shell) << 16));
}

/// Leaves lie on shells within each other; a ray goes on through the gaps.
bool intersectLeaves(const Primitive& p, const Vec3& origin, const Vec3& direction, float t_max,
                     RayHit& hit) {
    const Vec3 o = {origin.x / p.half.x, origin.y / p.half.y, origin.z / p.half.z};
    const Vec3 d = {direction.x / p.half.x, direction.y / p.half.y, direction.z / p.half.z};
    const float a = dot(d, d), b = dot(o, d), c = dot(o, o);
    for (int shell = 0; shell < kShells; ++shell) {
        const float radius = 1.0f - 0.1f * static_cast<float>(shell);
        const float inside = c - radius * radius, root = b * b - a * inside;
        if (root < 0)
            return false;
        const float t = (-b - std::sqrt(root)) / a;
        if (t >= t_max)
            return false;
        if (t <= 0 || inside <= 0)
            continue;
        if (unitFloat(leafAt(origin + direction * t, shell)) < kLeafShare) {
            hit = {t, shell};
            return true;
        }
    }
    return false;
}

/// Bars with three times their width between them, a rail near the foot and one at the top.
bool intersectRailing(const Primitive& p, const Vec3& o, const Vec3& d, float t_max, RayHit& hit) {
    if (std::abs(d.z) < 1e-9f)
        return false;
    const float t = -o.z / d.z;
    if (!(t > 0 && t < t_max))
        return false;
    const float x = o.x + t * d.x, y = o.y + t * d.y, width = 2 * p.half.z;
    if (std::abs(x) > p.half.x || std::abs(y) > p.half.y)
        return false;
    const float along = x / (4 * width), under = y + p.half.y, over = p.half.y - 3 * width - y;
    const bool bar = along - std::floor(along) < 0.25f;
    const bool rail = under < 1.5f * width || std::abs(over) < 0.75f * width;
    if (!bar && !rail)
        return false;
    hit = {t, d.z < 0 ? 1 : 0};
    return true;
}

/// Waves of 2 m down to a hand's width, all of about the same height.
constexpr int kTuftLevel = 5;
constexpr float kTuftStepMm = 50;
/// Tufts reach this many deviations above and below.
constexpr float kTuftReach = 2.5f;

/// Height of a lawn over its plane at a place on it [mm].
float tuftsAt(const Primitive& p, float x, float z) {
    const float noise = NoiseTexture::instance().sample(x, z, kTuftLevel);
    return p.half.y * std::clamp(1.4f * noise, -kTuftReach, kTuftReach);
}

/// Walks along the ray through the layer in which tufts are, to the first that it meets.
bool intersectLawn(const Primitive& p, const Vec3& o, const Vec3& d, float t_max, RayHit& hit) {
    const float reach = kTuftReach * p.half.y;
    if (d.y <= 1e-4f || o.y >= -reach)
        return false;
    float from = (-reach - o.y) / d.y, to = std::min((reach - o.y) / d.y, t_max);
    const float os[2] = {o.x, o.z}, ds[2] = {d.x, d.z}, half[2] = {p.half.x, p.half.z};
    for (int axis = 0; axis < 2; ++axis) {
        const float inverse = 1.0f / (std::abs(ds[axis]) > 1e-9f ? ds[axis] : 1e-9f);
        const float a = (-half[axis] - os[axis]) * inverse, b = (half[axis] - os[axis]) * inverse;
        from = std::max(from, std::min(a, b));
        to = std::min(to, std::max(a, b));
    }
    if (from >= to)
        return false;
    const auto above = [&](float t) {
        return -(o.y + t * d.y) - tuftsAt(p, o.x + t * d.x, o.z + t * d.z);
    };
    constexpr int kMostSteps = 200;
    const float way = std::sqrt(d.x * d.x + d.z * d.z) * (to - from);
    const int steps = std::clamp(static_cast<int>(way / kTuftStepMm) + 1, 1, kMostSteps);
    const float step = (to - from) / static_cast<float>(steps);
    float before = from, height = above(from);
    if (height <= 0) {
        hit = {from, 0};  // its rim
        return true;
    }
    for (int i = 1; i <= steps; ++i) {
        const float t = from + static_cast<float>(i) * step, here = above(t);
        if (here > 0) {
            before = t;
            height = here;
            continue;
        }
        hit = {before + (t - before) * height / (height - here), 0};
        return true;
    }
    return false;
}

/// Coordinates around a vertical axis: u along the girth, v along the axis.
void girth(const Vec3& local, float radius, const Mat3& rotation, SurfacePoint& point) {
    const float r = std::max(std::sqrt(local.x * local.x + local.z * local.z), 1e-3f);
    point.u = std::atan2(local.z, local.x) * radius;
    point.v = local.y;
    point.along_u = rotation * Vec3{-local.z / r, 0, local.x / r};
}

}  // namespace

bool intersect(const Primitive& primitive, const BumpMap& bumps, const Vec3& origin,
               const Vec3& origin_local, const Vec3& direction, float t_max, RayHit& hit) {
    const Vec3 d = primitive.rotation.transposed(direction);
    switch (primitive.shape) {
        case Shape::kPatch:
            return intersectPatch(primitive, bumps, origin, origin_local, direction, d, t_max, hit);
        case Shape::kBox:
            return intersectBox(primitive, origin_local, d, t_max, hit);
        case Shape::kCylinder:
            return intersectCylinder(primitive, origin_local, d, t_max, hit);
        case Shape::kEllipsoid:
            return intersectEllipsoid(primitive, origin_local, d, t_max, hit);
        case Shape::kLeaves:
            return intersectLeaves(primitive, origin_local, d, t_max, hit);
        case Shape::kRailing:
            return intersectRailing(primitive, origin_local, d, t_max, hit);
        case Shape::kLawn:
            return intersectLawn(primitive, origin_local, d, t_max, hit);
    }
    return false;
}

SurfacePoint surfaceAt(const Primitive& p, const Vec3& position, int face) {
    SurfacePoint point;
    point.position = position;
    const Vec3 local = p.rotation.transposed(position - p.centre);
    const Vec3 axis_x = p.rotation.column(0), axis_y = p.rotation.column(1),
               axis_z = p.rotation.column(2);
    const auto flat = [&](const Vec3& normal) {
        point.normal = normal;
        point.along_u = axis_x;
        point.along_v = axis_z;
        point.u = local.x;
        point.v = local.z;
    };
    switch (p.shape) {
        case Shape::kPatch:
            flat(axis_y * -1.0f);
            break;
        case Shape::kLawn: {
            constexpr float kSpan = 40;  // [mm], below a tuft's width
            const float rise_x =
                tuftsAt(p, local.x + kSpan, local.z) - tuftsAt(p, local.x - kSpan, local.z);
            const float rise_z =
                tuftsAt(p, local.x, local.z + kSpan) - tuftsAt(p, local.x, local.z - kSpan);
            const float scale = 1.0f / (2 * kSpan);
            flat(
                normalized(axis_y * -1.0f - axis_x * (rise_x * scale) - axis_z * (rise_z * scale)));
            break;
        }
        case Shape::kBox: {
            const float sign = face & 1 ? 1.0f : -1.0f;
            const int axis = face >> 1;
            if (axis == 1) {
                flat(axis_y * sign);
                break;
            }
            point.normal = (axis == 0 ? axis_x : axis_z) * sign;
            point.along_u = axis == 0 ? axis_z : axis_x;
            point.along_v = axis_y;
            // Each face shows another part of the texture.
            point.u = (axis == 0 ? local.z : local.x) + static_cast<float>(face) * 613.0f;
            point.v = local.y;
            break;
        }
        case Shape::kCylinder:
            if (face != 0) {
                flat(axis_y * (face == 1 ? -1.0f : 1.0f));
                break;
            }
            girth(local, p.half.x, p.rotation, point);
            point.normal = normalized(p.rotation * Vec3{local.x, 0, local.z});
            point.along_v = axis_y;
            break;
        case Shape::kRailing:
            point.normal = axis_z * (face == 1 ? 1.0f : -1.0f);
            point.along_u = axis_x;
            point.along_v = axis_y;
            point.u = local.x;
            point.v = local.y;
            break;
        case Shape::kLeaves:
        case Shape::kEllipsoid: {
            girth(local, p.half.x, p.rotation, point);
            point.normal = normalized(p.rotation * Vec3{local.x / (p.half.x * p.half.x),
                                                        local.y / (p.half.y * p.half.y),
                                                        local.z / (p.half.z * p.half.z)});
            if (p.shape == Shape::kLeaves) {
                // Every leaf faces its own way and shows its own part of the texture.
                const std::uint32_t leaf = leafAt(local, face);
                const Vec3 turn = {unitFloat(hash(leaf, 1)) - 0.5f, unitFloat(hash(leaf, 2)) - 0.5f,
                                   unitFloat(hash(leaf, 3)) - 0.5f};
                point.normal = normalized(point.normal + turn * 1.6f);
                point.u += static_cast<float>(leaf & 2047);
            }
            const Vec3 n = point.normal, u = point.along_u;
            point.along_v = {n.y * u.z - n.z * u.y, n.z * u.x - n.x * u.z, n.x * u.y - n.y * u.x};
            break;
        }
    }
    return point;
}

}  // namespace kova::camera
