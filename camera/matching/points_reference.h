#pragma once

#include "camera/matching/points.h"

namespace kova::camera {

/// What the points of one picture have in common, in single precision.
struct PointTerms {
    float depth;       ///< fx * baseline * 16 [mm/16 px]
    float offset;      ///< cx_right - cx [1/16 px]
    float cx, per_fx;  ///< [px], [1/px]
    float cy, per_fy;  ///< [px], [1/px]
    float min_mm, max_mm;
};

PointTerms pointTerms(const RectifiedGeometry& geometry, const PointLimits& limits);

/// What computePoints() computes, pixel by pixel; the truth for its kernels.
void computePointsReference(const ImageView<const std::uint16_t>& disparity,
                            const RectifiedGeometry& geometry, const PointLimits& limits,
                            float* points);

/// Columns [begin, end) of row y of it.
void pointsRowReference(const std::uint16_t* disparity, int y, int begin, int end,
                        const PointTerms& terms, float* points);

}  // namespace kova::camera
