#include "camera/detection/ground_model.h"

#include <algorithm>
#include <cmath>

namespace kova::camera {

GroundModel GroundModel::inColumn(double u) const {
    GroundModel column = *this;
    const auto factor = static_cast<float>(std::max(0.1, stretch + stretch_per_px * u));
    for (float& s : column.knot) s *= factor;
    for (float& offset : column.knot_offset) offset *= factor;
    column.stretch = 1;
    column.stretch_per_px = 0;
    return column;
}

float GroundModel::groundOf(float s) const {
    if (flat)
        return s;
    if (s >= knot.front())
        return s + knot_offset.front();
    for (int k = 1; k < kKnots; ++k) {
        if (s >= knot[k]) {
            const float t = (s - knot[k]) / (knot[k - 1] - knot[k]);
            return s + knot_offset[k] + t * (knot_offset[k - 1] - knot_offset[k]);
        }
    }
    return s + knot_offset.back();
}

float GroundModel::planeOf(float d) const {
    if (flat)
        return d;
    if (d >= knot.front() + knot_offset.front())
        return d - knot_offset.front();
    for (int k = 1; k < kKnots; ++k) {
        const float low = knot[k] + knot_offset[k];
        if (d >= low) {
            const float high = knot[k - 1] + knot_offset[k - 1];
            return knot[k] + (d - low) / (high - low) * (knot[k - 1] - knot[k]);
        }
    }
    return d - knot_offset.back();
}

float GroundModel::slopeAt(float s, const RectifiedGeometry& geometry) const {
    if (flat || s >= knot.front() || s <= knot.back())
        return 0;
    int k = 1;
    while (k < kKnots - 1 && s < knot[k]) ++k;
    const double fb = geometry.fx * geometry.baseline_mm;
    const double near_d = knot[k - 1] + knot_offset[k - 1];
    const double far_d = knot[k] + knot_offset[k];
    const double rise = height_mm * (knot_offset[k] / far_d - knot_offset[k - 1] / near_d);
    return static_cast<float>(std::atan2(rise, std::max(1.0, fb / far_d - fb / near_d)));
}

double GroundModel::pitch() const {
    return std::asin(std::clamp(down[2], -1.0, 1.0));
}

double GroundModel::roll() const {
    return std::atan2(down[0], down[1]);
}

GroundModel GroundModel::fromNormal(const std::array<double, 3>& down, double height_mm,
                                    const RectifiedGeometry& geometry) {
    GroundModel model;
    const double scale = geometry.fx * geometry.baseline_mm / height_mm;
    model.a = scale * down[0] / geometry.fx;
    model.b = scale * down[1] / geometry.fy;
    model.c = scale * down[2] - model.a * geometry.cx - model.b * geometry.cy;
    model.height_mm = height_mm;
    model.down = down;
    return model;
}

bool GroundModel::fromCoefficients(double a, double b, double c, const RectifiedGeometry& geometry,
                                   GroundModel& model) {
    const double fb = geometry.fx * geometry.baseline_mm;
    const double x = a * geometry.fx / fb;
    const double y = b * geometry.fy / fb;
    const double z = (a * geometry.cx + b * geometry.cy + c) / fb;
    const double norm = std::sqrt(x * x + y * y + z * z);
    if (!(norm > 0) || !std::isfinite(norm) || y <= 0)
        return false;
    model.a = a;
    model.b = b;
    model.c = c;
    model.height_mm = 1 / norm;
    model.down = {x / norm, y / norm, z / norm};
    return true;
}

}  // namespace kova::camera
