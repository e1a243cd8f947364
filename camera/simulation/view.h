#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "camera/simulation/intersect.h"
#include "camera/simulation/rig.h"
#include "camera/simulation/scene.h"

namespace kova::camera {

/// Points in time over one exposure at which rays are cast.
constexpr int kShutterSteps = 3;

/// One eye at one exposure, ready for casting: where it is, and which primitives each tile of the
/// picture can see.
class View {
public:
    static constexpr int kTile = 8;  ///< [px]

    /// @param poses  of this eye over the exposure; the middle one is used where one is enough
    View(const std::vector<Primitive>& primitives, const BumpMap& bumps, const RayTable& rays,
         const std::array<Pose, kShutterSteps + 1>& poses);

    const Pose& pose(int step) const { return poses_[step]; }
    static constexpr int kMiddle = kShutterSteps;  ///< index of the pose in the middle

    int tilesX() const { return tiles_x_; }
    int tilesY() const { return tiles_y_; }

    /// Nearest hit of a ray through a tile.
    /// @param step       which pose
    /// @param ray        in the eye's frame
    /// @param direction  the same in the world, with length 1 along the optical axis, so that t is
    /// depth
    /// @return the primitive's index, -1 for none
    int cast(int tile, int step, const RayTable::Ray& ray, const Vec3& direction,
             RayHit& hit) const;

    /// The same against everything, from anywhere; `skip` is left out.
    int castFree(const Vec3& origin, const Vec3& direction, int skip, RayHit& hit) const;

    /// True where something thinner than a pixel may pass through a tile.
    bool thinTile(int tile) const { return thin_[tile] != 0; }

private:
    struct Bounds {
        float x0, x1, y0, y1;  ///< in ray space
        float near = 0;        ///< smallest depth
        bool visible = false;
    };
    Bounds boundsOf(const Primitive& primitive) const;

    const std::vector<Primitive>& primitives_;
    const BumpMap& bumps_;
    std::array<Pose, kShutterSteps + 1> poses_;
    std::vector<Vec3> local_origins_;  ///< [step][primitive]
    int tiles_x_ = 0, tiles_y_ = 0;
    std::vector<std::int32_t> first_;  ///< of each tile in candidates_
    std::vector<std::int16_t> candidates_;
    std::vector<Bounds> bounds_;  ///< of each primitive, over the whole exposure
    std::vector<std::uint8_t> thin_;
};

/// Finds what stands between a point and the light.
class ShadowMap {
public:
    ShadowMap(const std::vector<Primitive>& primitives, const BumpMap& bumps, const Vec3& light);

    /// True when a primitive other than the ground covers the light. `jitter` moves the light a
    /// little, for soft edges.
    bool covered(const Vec3& position, const Vec3& normal, const Vec3& jitter) const;

private:
    static constexpr float kCellMm = 400;
    const std::vector<Primitive>& primitives_;
    const BumpMap& bumps_;
    Vec3 light_;
    float x0_ = 0, z0_ = 0;
    int cells_x_ = 0, cells_z_ = 0;
    std::vector<std::int32_t> first_;
    std::vector<std::int16_t> casters_;
};

}  // namespace kova::camera
