#include "camera/matching/points_reference.h"

#include <limits>

#include "camera/base/disparity.h"

namespace kova::camera {

PointTerms pointTerms(const RectifiedGeometry& g, const PointLimits& limits) {
    PointTerms terms{};
    terms.depth = static_cast<float>(g.fx * g.baseline_mm * kDisparityScale);
    terms.offset = static_cast<float>(g.disparityOffset() * kDisparityScale);
    terms.cx = static_cast<float>(g.cx);
    terms.per_fx = static_cast<float>(1 / g.fx);
    terms.cy = static_cast<float>(g.cy);
    terms.per_fy = static_cast<float>(1 / g.fy);
    terms.min_mm = limits.min_mm;
    terms.max_mm = limits.max_mm;
    return terms;
}

void pointsRowReference(const std::uint16_t* disparity, int y, int begin, int end,
                        const PointTerms& t, float* points) {
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    const float slope_y = (static_cast<float>(y) - t.cy) * t.per_fy;
    for (int x = begin; x < end; ++x) {
        float* point = points + 3 * x;
        const float d = static_cast<float>(disparity[x]) + t.offset;
        const float z = t.depth / d;
        if (isDisparity(disparity[x]) && d > 0 && z >= t.min_mm && z <= t.max_mm) {
            point[0] = (static_cast<float>(x) - t.cx) * t.per_fx * z;
            point[1] = slope_y * z;
            point[2] = z;
        } else {
            point[0] = point[1] = point[2] = kNan;
        }
    }
}

void computePointsReference(const ImageView<const std::uint16_t>& disparity,
                            const RectifiedGeometry& geometry, const PointLimits& limits,
                            float* points) {
    const PointTerms terms = pointTerms(geometry, limits);
    for (int y = 0; y < disparity.height; ++y)
        pointsRowReference(disparity.row(y), y, 0, disparity.width, terms,
                           points + static_cast<std::ptrdiff_t>(y) * disparity.width * 3);
}

}  // namespace kova::camera
