#include "camera/pipeline/distance_range.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kova::camera {

namespace {
constexpr double kFarthestMm = 50000;
// An error of 1 px changes Z = f*B/D by Z/D: a quarter of it where D is 4 px.
constexpr double kReachDisparity = 4;
}  // namespace

int defaultDisparities(int width) {
    return width >= 960 ? 128 : 64;
}

double depthMm(const RectifiedGeometry& g, double disparity) {
    const double total = disparity + g.disparityOffset();
    return total > 0 ? g.fx * g.baseline_mm / total : std::numeric_limits<double>::infinity();
}

float reachMm(const RectifiedGeometry& g) {
    return static_cast<float>(std::min(kFarthestMm, g.fx * g.baseline_mm / kReachDisparity));
}

float nearestMm(const RectifiedGeometry& g, int disparities) {
    return static_cast<float>(depthMm(g, disparities));
}

DisparityRange searchRange(const RectifiedGeometry& g, float min_mm, float max_mm) {
    const double fb = g.fx * g.baseline_mm;
    const auto disparity = [&](double mm) { return fb / std::max(mm, 1.0) - g.disparityOffset(); };
    DisparityRange range;
    // A hair inside, so that a limit that stems from a whole disparity gives it back.
    range.min = std::max(0, static_cast<int>(std::floor(disparity(max_mm) + 1e-3)));
    range.max = static_cast<int>(std::ceil(disparity(min_mm) - 1e-3));
    range.max = std::clamp(range.max, range.min + kFewestDisparities, range.min + kMostDisparities);
    return range;
}

DistanceRange::DistanceRange(const RectifiedGeometry& g)
    : nearest_mm_(nearestMm(g, std::min(kMostDisparities, g.width))),
      reach_mm_(reachMm(g)),
      min_mm_(nearestMm(g, std::min(defaultDisparities(g.width), g.width))),
      max_mm_(reach_mm_) {
    // A strange rig may see nothing farther than its nearest distance; keep the order.
    reach_mm_ = std::max(reach_mm_, nearest_mm_ + kSmallestSpanMm);
    max_mm_ = reach_mm_;
    min_mm_ = std::min(min_mm_, max_mm_ - kSmallestSpanMm);
}

void DistanceRange::setMinMm(float mm) {
    if (!std::isnan(mm))
        min_mm_ = std::max(nearest_mm_, std::min(mm, max_mm_ - kSmallestSpanMm));
}

void DistanceRange::setMaxMm(float mm) {
    if (!std::isnan(mm))
        max_mm_ = std::min(reach_mm_, std::max(mm, min_mm_ + kSmallestSpanMm));
}

}  // namespace kova::camera
