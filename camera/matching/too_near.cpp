#include "camera/matching/too_near.h"

#include <algorithm>

namespace kova::camera {

void TooNear::find(const ImageView<const std::uint16_t>& small, int factor, int max_disparity) {
    factor_ = factor;
    flags_.resize(small.width, small.height);
    flags_.fill(0);
    rows_.assign(static_cast<std::size_t>(small.height), 0);
    // One pixel of the small map beyond the range, so that its end is not taken for too near.
    const int limit = (max_disparity + factor) * kDisparityScale / factor;
    const int last_x = small.width - 1, last_y = small.height - 1;
    const auto near = [&](int x, int y) {
        const std::uint16_t d = small.at(std::clamp(x, 0, last_x), std::clamp(y, 0, last_y));
        return isDisparity(d) && d >= limit;
    };
    const auto mark = [&](int x, int y) {
        if (x < 0 || y < 0 || x > last_x || y > last_y || !near(x, y))
            return;
        flags_.at(x, y) |= kMarked;
        rows_[static_cast<std::size_t>(y)] = 1;
    };
    for (int y = 0; y < small.height; ++y)
        for (int x = 0; x < small.width; ++x) {
            if (!near(x, y) || !near(x - 1, y) || !near(x + 1, y) || !near(x, y - 1) ||
                !near(x, y + 1))
                continue;
            mark(x, y);
            mark(x - 1, y);
            mark(x + 1, y);
            mark(x, y - 1);
            mark(x, y + 1);
            const int right = x - small.at(x, y) / kDisparityScale;
            if (right >= 0)
                flags_.at(right, y) |= kShownRight;
        }
}

void TooNear::mark(DisparityMap& map, int begin, int end) const {
    for (int y = begin; y < end; ++y) {
        const int v = y / factor_;
        if (!rows_[static_cast<std::size_t>(v)])
            continue;
        const std::uint8_t* flags = flags_.row(v);
        std::uint16_t* disparity = map.disparity.row(y);
        std::uint8_t* confidence = map.confidence.row(y);
        for (int x = 0; x < map.disparity.width(); ++x) {
            if (flags[x / factor_] & kMarked) {
                disparity[x] = kTooNearDisparity;
                confidence[x] = 0;
            } else if (isDisparity(disparity[x])) {
                const int right = x - disparity[x] / kDisparityScale;
                if (right >= 0 && (flags[right / factor_] & kShownRight)) {
                    disparity[x] = kInvalidDisparity;
                    confidence[x] = 0;
                }
            }
        }
    }
}

}  // namespace kova::camera
