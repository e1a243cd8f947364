#include "camera/simulation/view.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kova::camera {

namespace {

constexpr float kNearMm = 30;
/// Unevenness reaches this far above and below a patch.
constexpr float kBumpReachMm = 80;

std::array<Vec3, 8> cornersOf(const Primitive& p) {
    Vec3 half = p.half;
    if (p.shape == Shape::kPatch)
        half.y = kBumpReachMm;
    if (p.shape == Shape::kLawn)
        half.y *= 3;
    if (p.shape == Shape::kCylinder)
        half.z = half.x;
    std::array<Vec3, 8> corners;
    for (int i = 0; i < 8; ++i)
        corners[i] = p.rotation * Vec3{i & 1 ? half.x : -half.x, i & 2 ? half.y : -half.y,
                                       i & 4 ? half.z : -half.z} +
                     p.centre;
    return corners;
}

constexpr int kEdges[12][2] = {{0, 1}, {2, 3}, {4, 5}, {6, 7}, {0, 2}, {1, 3},
                               {4, 6}, {5, 7}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};

}  // namespace

View::Bounds View::boundsOf(const Primitive& primitive) const {
    // The corners of a box cut off at the near plane all lie on its edges, and so do the extremes
    // of its picture.
    Bounds b{std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest(),
             std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest()};
    b.near = std::numeric_limits<float>::max();
    const std::array<Vec3, 8> corners = cornersOf(primitive);
    const auto add = [&](const Vec3& q) {
        const float x = q.x / q.z, y = q.y / q.z;
        b.x0 = std::min(b.x0, x);
        b.x1 = std::max(b.x1, x);
        b.y0 = std::min(b.y0, y);
        b.y1 = std::max(b.y1, y);
        b.near = std::min(b.near, q.z);
        b.visible = true;
    };
    for (const int step : {0, kMiddle, kShutterSteps - 1}) {
        std::array<Vec3, 8> q;
        for (int i = 0; i < 8; ++i)
            q[i] = poses_[step].rotation.transposed(corners[i] - poses_[step].position);
        for (const auto& edge : kEdges) {
            Vec3 a = q[edge[0]], c = q[edge[1]];
            if (a.z < kNearMm && c.z < kNearMm)
                continue;
            if (a.z < kNearMm)
                std::swap(a, c);
            add(a);
            if (c.z < kNearMm)
                c = a + (c - a) * ((kNearMm - a.z) / (c.z - a.z));
            add(c);
        }
    }
    return b;
}

View::View(const std::vector<Primitive>& primitives, const BumpMap& bumps, const RayTable& rays,
           const std::array<Pose, kShutterSteps + 1>& poses)
    : primitives_(primitives), bumps_(bumps), poses_(poses) {
    const int count = static_cast<int>(primitives.size());
    local_origins_.resize(static_cast<std::size_t>(count) * poses.size());
    for (std::size_t step = 0; step < poses.size(); ++step)
        for (int i = 0; i < count; ++i)
            local_origins_[step * count + i] =
                primitives[i].rotation.transposed(poses[step].position - primitives[i].centre);

    // A pixel's margin for the motion between the poses that the bounds come from.
    const float pixel =
        std::abs(rays.at(rays.width() / 2 + 1, 0).x - rays.at(rays.width() / 2, 0).x);
    std::vector<std::int16_t> order;
    for (int i = 0; i < count; ++i) {
        Bounds b = boundsOf(primitives[i]);
        b.x0 -= pixel;
        b.x1 += pixel;
        b.y0 -= pixel;
        b.y1 += pixel;
        bounds_.push_back(b);
        if (b.visible)
            order.push_back(static_cast<std::int16_t>(i));
    }
    const std::vector<Bounds>& bounds = bounds_;
    std::sort(order.begin(), order.end(), [&](std::int16_t a, std::int16_t b) {
        return bounds[a].near != bounds[b].near ? bounds[a].near < bounds[b].near : a < b;
    });

    tiles_x_ = (rays.width() + kTile - 1) / kTile;
    tiles_y_ = (rays.height() + kTile - 1) / kTile;
    first_.push_back(0);
    for (int ty = 0; ty < tiles_y_; ++ty)
        for (int tx = 0; tx < tiles_x_; ++tx) {
            const int px0 = tx * kTile - 1, py0 = ty * kTile - 1;
            const int px1 = std::min(px0 + kTile + 1, rays.width());
            const int py1 = std::min(py0 + kTile + 1, rays.height());
            float x0 = 1e9f, x1 = -1e9f, y0 = 1e9f, y1 = -1e9f;
            const auto grow = [&](int x, int y) {
                const RayTable::Ray& r = rays.at(x, y);
                x0 = std::min(x0, r.x);
                x1 = std::max(x1, r.x);
                y0 = std::min(y0, r.y);
                y1 = std::max(y1, r.y);
            };
            for (int x = px0; x <= px1; ++x) {
                grow(x, py0);
                grow(x, py1);
            }
            for (int y = py0; y <= py1; ++y) {
                grow(px0, y);
                grow(px1, y);
            }
            std::uint8_t thin = 0;
            for (const std::int16_t i : order) {
                const Bounds& b = bounds[i];
                if (b.x0 > x1 || b.x1 < x0 || b.y0 > y1 || b.y1 < y0)
                    continue;
                candidates_.push_back(i);
                // Narrower than two pixels at its nearest: single rays may miss it.
                const Vec3& half = primitives[i].half;
                thin |= primitives[i].thin &&
                        std::min(half.x, std::min(half.y, half.z)) < pixel * b.near;
            }
            first_.push_back(static_cast<std::int32_t>(candidates_.size()));
            thin_.push_back(thin);
        }
}

int View::cast(int tile, int step, const RayTable::Ray& ray, const Vec3& direction,
               RayHit& hit) const {
    const Pose& pose = poses_[step];
    const Vec3* local = &local_origins_[static_cast<std::size_t>(step) * primitives_.size()];
    int found = -1;
    hit.t = std::numeric_limits<float>::infinity();
    for (std::int32_t k = first_[tile]; k < first_[tile + 1]; ++k) {
        const std::int16_t i = candidates_[k];
        const Bounds& b = bounds_[i];
        if (b.near > hit.t)
            break;  // sorted: nothing nearer follows
        if (ray.x < b.x0 || ray.x > b.x1 || ray.y < b.y0 || ray.y > b.y1)
            continue;
        RayHit h;
        if (intersect(primitives_[i], bumps_, pose.position, local[i], direction, hit.t, h)) {
            hit = h;
            found = i;
        }
    }
    return found;
}

int View::castFree(const Vec3& origin, const Vec3& direction, int skip, RayHit& hit) const {
    int found = -1;
    hit.t = std::numeric_limits<float>::infinity();
    for (int i = 0; i < static_cast<int>(primitives_.size()); ++i) {
        if (i == skip)
            continue;
        const Primitive& p = primitives_[i];
        RayHit h;
        if (intersect(p, bumps_, origin, p.rotation.transposed(origin - p.centre), direction, hit.t,
                      h)) {
            hit = h;
            found = i;
        }
    }
    return found;
}

ShadowMap::ShadowMap(const std::vector<Primitive>& primitives, const BumpMap& bumps,
                     const Vec3& light)
    : primitives_(primitives), bumps_(bumps), light_(light) {
    // Everything is moved along the light to the plane y = 0; a cell of it knows what lies over it.
    struct Footprint {
        float x0 = 1e9f, x1 = -1e9f, z0 = 1e9f, z1 = -1e9f;
    };
    std::vector<Footprint> prints(primitives.size());
    float x0 = 1e9f, x1 = -1e9f, z0 = 1e9f, z1 = -1e9f;
    const auto casts = [](const Primitive& p) {
        return p.casts_shadow && p.shape != Shape::kPatch;
    };
    for (std::size_t i = 0; i < primitives.size(); ++i) {
        if (!casts(primitives[i]))
            continue;
        Footprint& f = prints[i];
        for (const Vec3& c : cornersOf(primitives[i])) {
            const float s = -c.y / light.y;
            f.x0 = std::min(f.x0, c.x + s * light.x);
            f.x1 = std::max(f.x1, c.x + s * light.x);
            f.z0 = std::min(f.z0, c.z + s * light.z);
            f.z1 = std::max(f.z1, c.z + s * light.z);
        }
        x0 = std::min(x0, f.x0);
        x1 = std::max(x1, f.x1);
        z0 = std::min(z0, f.z0);
        z1 = std::max(z1, f.z1);
    }
    if (x0 > x1)
        return;
    x0_ = x0 - kCellMm;
    z0_ = z0 - kCellMm;
    cells_x_ = static_cast<int>((x1 - x0_) / kCellMm) + 2;
    cells_z_ = static_cast<int>((z1 - z0_) / kCellMm) + 2;
    std::vector<std::vector<std::int16_t>> cells(static_cast<std::size_t>(cells_x_) * cells_z_);
    for (std::size_t i = 0; i < primitives.size(); ++i) {
        if (!casts(primitives[i]))
            continue;
        const Footprint& f = prints[i];
        constexpr float kMargin = 60;  // the light's jitter
        for (int z = static_cast<int>((f.z0 - kMargin - z0_) / kCellMm);
             z <= static_cast<int>((f.z1 + kMargin - z0_) / kCellMm); ++z)
            for (int x = static_cast<int>((f.x0 - kMargin - x0_) / kCellMm);
                 x <= static_cast<int>((f.x1 + kMargin - x0_) / kCellMm); ++x)
                cells[static_cast<std::size_t>(z) * cells_x_ + x].push_back(
                    static_cast<std::int16_t>(i));
    }
    first_.push_back(0);
    for (const auto& cell : cells) {
        casters_.insert(casters_.end(), cell.begin(), cell.end());
        first_.push_back(static_cast<std::int32_t>(casters_.size()));
    }
}

bool ShadowMap::covered(const Vec3& position, const Vec3& normal, const Vec3& jitter) const {
    if (first_.empty())
        return false;
    const float s = -position.y / light_.y;
    const float u = (position.x + s * light_.x - x0_) / kCellMm;
    const float v = (position.z + s * light_.z - z0_) / kCellMm;
    if (!(u >= 0 && v >= 0 && u < static_cast<float>(cells_x_) && v < static_cast<float>(cells_z_)))
        return false;
    const int cell = static_cast<int>(v) * cells_x_ + static_cast<int>(u);
    const Vec3 origin = position + normal * 3.0f;
    const Vec3 direction = light_ + jitter;
    for (std::int32_t k = first_[cell]; k < first_[cell + 1]; ++k) {
        const Primitive& p = primitives_[casters_[k]];
        RayHit hit;
        if (intersect(p, bumps_, origin, p.rotation.transposed(origin - p.centre), direction, 1e9f,
                      hit))
            return true;
    }
    return false;
}

}  // namespace kova::camera
