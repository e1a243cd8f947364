#include "camera/matching/fill.h"

#include <algorithm>
#include <cstdlib>

namespace kova::camera {

namespace {
constexpr int kUnreached = 0xFFFF;
}

void EdgeAwareFill::reach(const ImageView<const std::uint8_t>& grey, DisparityMap& map, int x,
                          int y, int from_x, int from_y) {
    const int known = distance_.at(from_x, from_y);
    if (known == kUnreached)
        return;
    const int distance = std::min(
        known + kFillStep + std::abs(grey.at(x, y) - grey.at(from_x, from_y)), kUnreached - 1);
    if (distance < distance_.at(x, y)) {
        distance_.at(x, y) = static_cast<std::uint16_t>(distance);
        map.disparity.at(x, y) = map.disparity.at(from_x, from_y);
    }
}

void EdgeAwareFill::fill(const ImageView<const std::uint8_t>& grey, DisparityMap& map) {
    const int width = grey.width, height = grey.height;
    distance_.resize(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const std::uint16_t d = map.disparity.at(x, y);
            distance_.at(x, y) = isDisparity(d) ? 0 : kUnreached;
            if (d == kInvalidDisparity)
                map.confidence.at(x, y) = kFilledConfidence;
        }
    }
    const auto open = [&](int x, int y) {
        return distance_.at(x, y) > 0 && map.disparity.at(x, y) != kTooNearDisparity;
    };
    // Each scan goes down and up once, along each row in both directions; two of them reach around
    // most corners.
    for (int scan = 0; scan < 2; ++scan) {
        for (int i = 0; i < 2 * height; ++i) {
            const bool down = i < height;
            const int y = down ? i : 2 * height - 1 - i, before = down ? y - 1 : y + 1;
            if (before >= 0 && before < height)
                for (int x = 0; x < width; ++x)
                    if (open(x, y))
                        reach(grey, map, x, y, x, before);
            for (int x = 1; x < width; ++x)
                if (open(x, y))
                    reach(grey, map, x, y, x - 1, y);
            for (int x = width - 2; x >= 0; --x)
                if (open(x, y))
                    reach(grey, map, x, y, x + 1, y);
        }
    }
    // Without any measured pixel there is nothing to complete.
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            if (!isDisparity(map.disparity.at(x, y)))
                map.confidence.at(x, y) = 0;
}

}  // namespace kova::camera
