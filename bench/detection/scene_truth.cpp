#include "bench/detection/scene_truth.h"

#include <algorithm>
#include <cmath>

#include "camera/simulation/intersect.h"

namespace kova::bench {

namespace {

using camera::Primitive;
using camera::RectifiedGeometry;
using camera::Vec3;

constexpr int kStep = 2;               // outlines are counted on a grid of this many pixels
constexpr float kSameSurface = 0.75f;  // [px]
constexpr double kBelowEdgeMm = 150;
constexpr int kTextureReach = 3;  // [px]
constexpr int kTextureRange = 8;  // [grey levels], well above noise over three rows

void findInRight(SceneTruth& out) {
    const int width = out.disparity.width();
    out.in_right.resize(width, out.disparity.height());
    std::vector<float> nearest(static_cast<std::size_t>(width));
    for (int y = 0; y < out.disparity.height(); ++y) {
        std::fill(nearest.begin(), nearest.end(), 0.0f);
        const auto target = [&](int x) {
            return static_cast<int>(std::lround(static_cast<float>(x) - out.disparity.at(x, y)));
        };
        for (int x = 0; x < width; ++x)
            if (const int at = target(x); at >= 0)
                nearest[at] = std::max(nearest[at], out.disparity.at(x, y));
        for (int x = 0; x < width; ++x) {
            const int at = target(x);
            out.in_right.at(x, y) = at >= 0 && out.disparity.at(x, y) >= nearest[at] - kSameSurface;
        }
    }
}

void findTexture(const camera::ImageView<const std::uint8_t>& left, SceneTruth& out) {
    out.textured.resize(left.width, left.height);
    for (int y = 0; y < left.height; ++y)
        for (int x = 0; x < left.width; ++x) {
            const int above = std::max(0, y - 1), below = std::min(left.height - 1, y + 1);
            int low = 3 * 255, high = 0;
            for (int i = std::max(0, x - kTextureReach);
                 i <= std::min(left.width - 1, x + kTextureReach); ++i) {
                const int sum = left.at(i, above) + left.at(i, y) + left.at(i, below);
                low = std::min(low, sum);
                high = std::max(high, sum);
            }
            out.textured.at(x, y) = high - low >= 3 * kTextureRange;
        }
}

/// Pixels of a grid that an object would cover if it stood alone, in a picture without borders.
double outlineOf(const std::vector<Primitive>& parts, const camera::Scene& scene,
                 const camera::Pose& pose, const RectifiedGeometry& g) {
    double x0 = 1e9, x1 = -1e9, y0 = 1e9, y1 = -1e9;
    for (const Primitive& part : parts) {
        const Vec3 c = pose.rotation.transposed(part.centre - pose.position);
        const double r = camera::length(part.half), z = std::max(c.z - r, 100.0);
        if (c.z + r < 100)
            continue;
        for (const double side : {-r, r}) {
            for (const double depth : {z, c.z + r}) {
                x0 = std::min(x0, g.cx + g.fx * (c.x + side) / depth);
                x1 = std::max(x1, g.cx + g.fx * (c.x + side) / depth);
                y0 = std::min(y0, g.cy + g.fy * (c.y + side) / depth);
                y1 = std::max(y1, g.cy + g.fy * (c.y + side) / depth);
            }
        }
    }
    // Far outside nothing needs to be counted exactly: most of the object is out of sight then.
    x0 = std::max(x0, -1.0 * g.width), x1 = std::min(x1, 2.0 * g.width);
    y0 = std::max(y0, -1.0 * g.height), y1 = std::min(y1, 2.0 * g.height);
    std::vector<Vec3> origins;
    for (const Primitive& part : parts)
        origins.push_back(part.rotation.transposed(pose.position - part.centre));
    double count = 0;
    const auto onGrid = [](double v) { return static_cast<int>(std::floor(v / kStep)) * kStep; };
    for (int y = onGrid(y0); y <= y1; y += kStep)
        for (int x = onGrid(x0); x <= x1; x += kStep) {
            const Vec3 ray = pose.rotation * Vec3{static_cast<float>((x - g.cx) / g.fx),
                                                  static_cast<float>((y - g.cy) / g.fy), 1};
            camera::RayHit hit;
            for (std::size_t i = 0; i < parts.size(); ++i)
                if (camera::intersect(parts[i], scene.bumps, pose.position, origins[i], ray, 1e6f,
                                      hit)) {
                    ++count;
                    break;
                }
        }
    return count;
}

struct Seen {
    double both = 0;  ///< pixels of the grid that both eyes see
    std::vector<ObjectColumn> columns;
    std::vector<Vec3> tops;  ///< of each column, in the world
};

std::vector<Seen> collectSeen(const camera::FrameTruth& truth, const SceneTruth& out,
                              std::size_t objects, const RectifiedGeometry& g) {
    std::vector<Seen> seen(objects);
    for (int x = 0; x < out.disparity.width(); ++x)
        for (int y = 0; y < out.disparity.height(); ++y) {
            const int object = truth.object.at(x, y);
            if (object < 0)
                continue;
            Seen& s = seen[object];
            const float d = out.disparity.at(x, y);
            if (x % kStep == 0 && y % kStep == 0)
                s.both += out.in_right.at(x, y);
            const Vec3 ray = {static_cast<float>((x - g.cx) / g.fx),
                              static_cast<float>((y - g.cy) / g.fy), 1};
            const Vec3 point =
                truth.pose.position + truth.pose.rotation * ray * truth.depth_mm.at(x, y);
            if (s.columns.empty() || s.columns.back().x != x) {
                s.columns.push_back({x, d, d});
                s.tops.push_back(point);
            }
            if (point.y < s.tops.back().y)
                s.tops.back() = point;
            s.columns.back().nearest = std::max(s.columns.back().nearest, d);
            s.columns.back().farthest = std::min(s.columns.back().farthest, d);
        }
    return seen;
}

/// Those columns in which the thing rises enough over the ground beside it.
std::vector<ObjectColumn> risingColumns(const Seen& seen, const camera::SceneObject& thing,
                                        const camera::Scene& scene) {
    std::vector<ObjectColumn> rising;
    const double foot = thing.foot.y - scene.groundY(thing.foot.x, thing.foot.z);
    for (std::size_t i = 0; i < seen.columns.size(); ++i) {
        const Vec3& top = seen.tops[i];
        if (foot + scene.groundY(top.x, top.z) - top.y >= kLowestRiseMm)
            rising.push_back(seen.columns[i]);
    }
    return rising;
}

}  // namespace

void judgeTruth(const camera::FrameTruth& truth, const camera::Scene& scene, double t_s,
                const RectifiedGeometry& geometry,
                const camera::ImageView<const std::uint8_t>& left, SceneTruth& out) {
    out.disparity.resize(geometry.width, geometry.height);
    out.label.resize(geometry.width, geometry.height);
    const double scale = geometry.fx * geometry.baseline_mm;
    for (int y = 0; y < geometry.height; ++y)
        for (int x = 0; x < geometry.width; ++x) {
            const float depth = truth.depth_mm.at(x, y);
            out.disparity.at(x, y) =
                std::isfinite(depth) && depth > 0 ? static_cast<float>(scale / depth) : 0.0f;
            out.label.at(x, y) = truth.label.at(x, y);
        }
    out.object = truth.object.clone();
    findInRight(out);
    findTexture(left, out);

    out.objects.clear();
    std::vector<Seen> seen = collectSeen(truth, out, scene.objects.size(), geometry);
    const std::vector<Primitive> primitives = scene.primitivesAt(t_s);
    for (std::size_t i = 0; i < seen.size(); ++i) {
        const camera::SceneObject& thing = scene.objects[i];
        // What stands below an edge of the ground is seen as part of the drop.
        const double below = thing.foot.y - scene.groundY(thing.foot.x, thing.foot.z);
        if (seen[i].both <= 0 || below > kBelowEdgeMm)
            continue;
        std::vector<Primitive> parts;
        for (const Primitive& p : primitives)
            if (p.object == static_cast<int>(i))
                parts.push_back(p);
        if (2 * seen[i].both < outlineOf(parts, scene, truth.pose, geometry))
            continue;
        VisibleObject object;
        object.object = static_cast<int>(i);
        object.height_mm = thing.size.y;
        object.overhead = thing.overhead;
        float nearest = 0;
        for (const ObjectColumn& column : seen[i].columns)
            nearest = std::max(nearest, column.nearest);
        object.distance_mm = scale / nearest;
        object.contrast_px =
            scale * object.height_mm / (scene.path.camera_height_mm * object.distance_mm);
        object.columns = risingColumns(seen[i], thing, scene);
        if (!object.columns.empty())
            out.objects.push_back(std::move(object));
    }
}

}  // namespace kova::bench
