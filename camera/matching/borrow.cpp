#include "camera/matching/borrow.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "camera/matching/upscale.h"

namespace kova::camera {

namespace {

/// Pixels around the 2x2 of the full size that a pixel of half the size stands for.
constexpr int kReach = 2;

bool hasHole(const std::uint16_t* above, const std::uint16_t* below, int x, int right) {
    const std::uint16_t most =
        std::max(std::max(above[x], above[right]), std::max(below[x], below[right]));
    return !isDisparity(most);
}

bool hasOtherSurface(const ImageView<const std::uint16_t>& full, int x, int y, int disparity) {
    const int x_begin = std::max(x - kReach, 0), x_end = std::min(x + 2 + kReach, full.width);
    const int y_begin = std::max(y - kReach, 0), y_end = std::min(y + 2 + kReach, full.height);
    bool other = false;
    for (int v = y_begin; v < y_end && !other; ++v) {
        const std::uint16_t* row = full.row(v);
        for (int u = x_begin; u < x_end; ++u)
            other |= isDisparity(row[u]) & (std::abs(row[u] - disparity) > kOtherSurface);
    }
    return other;
}

}  // namespace

void chooseBorrowed(const ImageView<const std::uint16_t>& full, DisparityMap& half, int begin,
                    int end) {
    for (int v = begin; v < end; ++v) {
        const std::uint16_t* above = full.row(2 * v);
        const std::uint16_t* below = full.row(std::min(2 * v + 1, full.height - 1));
        const std::uint16_t* disparity = half.disparity.row(v);
        std::uint8_t* confidence = half.confidence.row(v);
        for (int u = 0; u < half.disparity.width(); ++u)
            if (!hasHole(above, below, 2 * u, std::min(2 * u + 1, full.width - 1)) ||
                confidence[u] < kLeastBorrowed ||
                hasOtherSurface(full, 2 * u, 2 * v, 2 * disparity[u]))
                confidence[u] = 0;
    }
}

void borrowRows(const DisparityMap& half, DisparityMap& full, std::uint16_t* upscaled, int begin,
                int end) {
    const int width = full.disparity.width(), offers = half.confidence.width();
    for (int y = begin; y < end; ++y) {
        const std::uint8_t* offered = half.confidence.row(y / 2);
        const auto none = [](std::uint8_t c) { return c == 0; };
        if (std::all_of(offered, offered + offers, none))
            continue;
        upscaleDisparityRow(half.disparity.view(), y, upscaled);
        std::uint16_t* disparity = full.disparity.row(y);
        std::uint8_t* confidence = full.confidence.row(y);
        for (int u = 0; u < offers; ++u) {
            // Offers are rare: eight at a time are passed over.
            std::uint64_t eight = 1;
            if (u + 8 <= offers)
                std::memcpy(&eight, offered + u, sizeof eight);
            if (eight == 0) {
                u += 7;
                continue;
            }
            if (offered[u] == 0)
                continue;
            for (int x = 2 * u; x < std::min(2 * u + 2, width); ++x) {
                if (isDisparity(disparity[x]) || upscaled[x] / kDisparityScale > x)
                    continue;
                disparity[x] = upscaled[x];
                confidence[x] = static_cast<std::uint8_t>(offered[u] * kBorrowedTrust / 64);
            }
        }
    }
}

}  // namespace kova::camera
