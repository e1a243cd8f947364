#include "camera/matching/too_near.h"

#include <algorithm>

namespace kova::camera {

void markTooNear(const ImageView<const std::uint16_t>& quarter, int max_disparity,
                 DisparityMap& map, int begin, int end) {
    // One pixel of the small map beyond the range, so that its end is not taken for too near.
    const int limit = (max_disparity + 4) * kDisparityScale / 4;
    const auto near = [&](int x, int y) {
        const std::uint16_t d =
            quarter.at(std::clamp(x, 0, quarter.width - 1), std::clamp(y, 0, quarter.height - 1));
        return isDisparity(d) && d >= limit;
    };
    const int width = map.disparity.width();
    for (int y = begin; y < end; ++y) {
        const int v = y / 4;
        for (int u = 0; u < quarter.width; ++u) {
            if (!near(u, v) || !near(u - 1, v) || !near(u + 1, v) || !near(u, v - 1) ||
                !near(u, v + 1))
                continue;
            for (int x = 4 * u; x < std::min(4 * u + 4, width); ++x) {
                map.disparity.at(x, y) = kTooNearDisparity;
                map.confidence.at(x, y) = 0;
            }
        }
    }
}

}  // namespace kova::camera
