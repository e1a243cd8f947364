#pragma once

#include "camera/calibration/stereo_calibration.h"

namespace kova::camera {

/// Disparities searched in [min, max) [px].
struct DisparityRange {
    int min = 0;
    int max = 0;
};

/// Disparities that a search covers by default: 128 at HD, 64 at SD (below 960 px of width).
int defaultDisparities(int width);

/// Most disparities that a search may cover; slower.
constexpr int kMostDisparities = 320;
/// Fewest that the matcher takes.
constexpr int kFewestDisparities = 16;

/// Farthest distance that is measured [mm]: where one pixel of disparity error means 25 % of the
/// distance, at most 50 m.
float reachMm(const RectifiedGeometry& geometry);

/// Nearest distance [mm] of a search over so many disparities, from infinity on.
float nearestMm(const RectifiedGeometry& geometry, int disparities);

/// Depth [mm] of a disparity [px]; +infinity where it is not positive after the offset.
double depthMm(const RectifiedGeometry& geometry, double disparity);

/// The search that covers [min_mm, max_mm]: whole pixels outward, never below 0, at least
/// kFewestDisparities and at most kMostDisparities wide (the far end holds).
DisparityRange searchRange(const RectifiedGeometry& geometry, float min_mm, float max_mm);

/// Limits of the measured distance, kept consistent: setters clamp, so that
/// nearest possible <= min < max <= reach, with kSmallestSpan between them.
class DistanceRange {
public:
    DistanceRange() = default;
    explicit DistanceRange(const RectifiedGeometry& geometry);

    float minMm() const { return min_mm_; }
    float maxMm() const { return max_mm_; }
    /// NaN is ignored.
    void setMinMm(float mm);
    void setMaxMm(float mm);

private:
    static constexpr float kSmallestSpanMm = 100.0f;
    float nearest_mm_ = 0;
    float reach_mm_ = 0;
    float min_mm_ = 0;
    float max_mm_ = 0;
};

}  // namespace kova::camera
