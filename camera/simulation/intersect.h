#pragma once

#include "camera/simulation/scene.h"

namespace kova::camera {

/// Where a ray p = origin + t * direction meets a primitive.
struct RayHit {
    float t = 0;
    int face = 0;  ///< of a box: axis * 2 + (1 on the positive side); of a cylinder 0 side, 1, 2;
                   ///< of leaves: their shell
};

/// Nearest hit in (0, t_max).
/// @param origin_local  the ray's origin in the primitive's frame
/// @param direction     in the world; need not have length 1
bool intersect(const Primitive& primitive, const BumpMap& bumps, const Vec3& origin,
               const Vec3& origin_local, const Vec3& direction, float t_max, RayHit& hit);

/// The surface at a hit: where, which way it faces, and its texture coordinates.
struct SurfacePoint {
    Vec3 position;
    Vec3 normal;            ///< towards the side that was hit, length 1
    Vec3 along_u, along_v;  ///< in the world; how position moves with u and v, length 1
    float u = 0, v = 0;     ///< [mm]
};

SurfacePoint surfaceAt(const Primitive& primitive, const Vec3& position, int face);

}  // namespace kova::camera
