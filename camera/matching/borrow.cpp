#include "camera/matching/borrow.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "camera/matching/upscale.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/borrow.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "camera/base/row_loop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// Sets the confidence of pixels to 0 that are too unsure or whose 2x2 of the full size, all of
/// them inside of it, have no hole.
void keepWhereHoles(const std::uint16_t* above, const std::uint16_t* below, int width,
                    std::uint8_t* confidence) {
    coverRow(hn::ScalableTag<std::uint16_t>(), 0, width, [&](auto d, int x) HWY_ATTR {
        const hn::Rebind<std::uint8_t, decltype(d)> d8;
        hn::Vec<decltype(d)> a, b, c, e;
        hn::LoadInterleaved2(d, above + 2 * x, a, b);
        hn::LoadInterleaved2(d, below + 2 * x, c, e);
        const auto most = hn::Max(hn::Max(a, b), hn::Max(c, e));
        const auto sure = hn::PromoteTo(d, hn::LoadU(d8, confidence + x));
        const auto keep = hn::And(hn::Gt(most, hn::Set(d, kFirstReservedDisparity - 1)),
                                  hn::Gt(sure, hn::Set(d, kLeastBorrowed - 1)));
        hn::StoreU(hn::TruncateTo(d8, hn::IfThenElseZero(keep, sure)), d8, confidence + x);
    });
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kova::camera {

HWY_EXPORT(keepWhereHoles);

namespace {

/// Pixels around the 2x2 of the full size that a pixel of half the size stands for.
constexpr int kReach = 2;

/// Eight confidences at a time are passed over where all are 0, which is nearly everywhere.
template <typename Body>
void forOffers(const std::uint8_t* confidence, int width, const Body& body) {
    for (int u = 0; u < width; ++u) {
        std::uint64_t eight = 1;
        if (u + 8 <= width)
            std::memcpy(&eight, confidence + u, sizeof eight);
        if (eight == 0)
            u += 7;
        else if (confidence[u] != 0)
            body(u);
    }
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
        const int width = half.disparity.width(), whole = full.width / 2;
        HWY_DYNAMIC_DISPATCH(keepWhereHoles)(above, below, whole, confidence);
        if (whole < width && (confidence[whole] < kLeastBorrowed ||
                              isDisparity(std::max(above[2 * whole], below[2 * whole]))))
            confidence[whole] = 0;
        forOffers(confidence, width, [&](int u) {
            if (hasOtherSurface(full, 2 * u, 2 * v, 2 * disparity[u]))
                confidence[u] = 0;
        });
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
        forOffers(offered, offers, [&](int u) {
            for (int x = 2 * u; x < std::min(2 * u + 2, width); ++x) {
                if (isDisparity(disparity[x]) || upscaled[x] / kDisparityScale > x)
                    continue;
                disparity[x] = upscaled[x];
                confidence[x] = static_cast<std::uint8_t>(offered[u] * kBorrowedTrust / 64);
            }
        });
    }
}

}  // namespace kova::camera
#endif  // HWY_ONCE
