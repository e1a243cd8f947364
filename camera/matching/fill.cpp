#include "camera/matching/fill.h"

#include <algorithm>
#include <cstdlib>

#include "camera/base/parallel.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/fill.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// One step of a sweep along the columns: from the row `before` to this one, `lanes(d)` pixels.
template <class D>
HWY_INLINE void stepAt(D d, const std::uint8_t* grey_before, const std::uint8_t* grey,
                       const std::uint16_t* distance_before, std::uint16_t* distance,
                       const std::uint16_t* disparity_before, std::uint16_t* disparity, int x) {
    const auto old_distance = hn::LoadU(d, distance + x);
    if (hn::AllTrue(d, hn::Eq(old_distance, hn::Zero(d))))
        return;  // all measured
    const hn::Rebind<std::uint8_t, D> d8;
    const auto a = hn::PromoteTo(d, hn::LoadU(d8, grey_before + x));
    const auto b = hn::PromoteTo(d, hn::LoadU(d8, grey + x));
    const auto cost =
        hn::Add(hn::Sub(hn::Max(a, b), hn::Min(a, b)), hn::Set(d, EdgeAwareFill::kFillStep));
    const auto unreached = hn::Set(d, 0xFFFF);
    const auto known = hn::LoadU(d, distance_before + x);
    // A way too long for 16 bits is still a way; from where none leads it stays unreached.
    const auto sum = hn::Min(hn::SaturatedAdd(known, cost), hn::Set(d, 0xFFFE));
    const auto reached = hn::Or(sum, hn::VecFromMask(d, hn::Eq(known, unreached)));
    const auto old_disparity = hn::LoadU(d, disparity + x);
    const auto nearer = hn::And(hn::Lt(reached, old_distance),
                                hn::Ne(old_disparity, hn::Set(d, kTooNearDisparity)));
    hn::StoreU(hn::IfThenElse(nearer, reached, old_distance), d, distance + x);
    hn::StoreU(hn::IfThenElse(nearer, hn::LoadU(d, disparity_before + x), old_disparity), d,
               disparity + x);
}

/// The pixels [begin, end) of it.
void stepColumns(const std::uint8_t* grey_before, const std::uint8_t* grey,
                 const std::uint16_t* distance_before, std::uint16_t* distance,
                 const std::uint16_t* disparity_before, std::uint16_t* disparity, int begin,
                 int end) {
    const hn::ScalableTag<std::uint16_t> d;
    const hn::CappedTag<std::uint16_t, 1> d1;
    const int lanes = static_cast<int>(hn::Lanes(d));
    int x = begin;
    for (; x + lanes <= end; x += lanes)
        stepAt(d, grey_before, grey, distance_before, distance, disparity_before, disparity, x);
    for (; x < end; ++x)
        stepAt(d1, grey_before, grey, distance_before, distance, disparity_before, disparity, x);
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(stepColumns);

namespace {

constexpr int kUnreached = 0xFFFF, kFarthest = 0xFFFE;
/// Rows, and columns, of one task.
constexpr int kStripRows = 32, kStripColumns = 256;

/// A sweep along a row, `step` is 1 or -1, from the pixel x to before the pixel `end`.
void sweepRow(const std::uint8_t* grey, std::uint16_t* distance, std::uint16_t* disparity, int x,
              int end, int step) {
    const int first = x;
    while (x != end) {
        if (distance[x] == 0) {  // measured
            x += step;
            continue;
        }
        int known = x == first ? kUnreached : distance[x - step];
        std::uint16_t carried = x == first ? kInvalidDisparity : disparity[x - step];
        for (; x != end && distance[x] != 0; x += step) {
            if (known != kUnreached) {
                const int cost = EdgeAwareFill::kFillStep + std::abs(grey[x] - grey[x - step]);
                known = std::min(known + cost, kFarthest);
            }
            if (known < distance[x] && disparity[x] != kTooNearDisparity) {
                distance[x] = static_cast<std::uint16_t>(known);
                disparity[x] = carried;
            } else {
                known = distance[x];
                carried = disparity[x];
            }
        }
    }
}

}  // namespace

void EdgeAwareFill::fill(const ImageView<const std::uint8_t>& grey, DisparityMap& map) {
    const int width = grey.width, height = grey.height;
    if (grey.empty())
        return;
    distance_.resize(width, height);
    const int row_strips = (height + kStripRows - 1) / kStripRows;
    const int column_strips = (width + kStripColumns - 1) / kStripColumns;
    const auto sweepRows = [&](int strip, bool first) {
        const int end = std::min((strip + 1) * kStripRows, height);
        for (int y = strip * kStripRows; y < end; ++y) {
            std::uint16_t* distance = distance_.row(y);
            std::uint16_t* disparity = map.disparity.row(y);
            for (int x = 0; first && x < width; ++x)
                distance[x] = isDisparity(disparity[x]) ? 0 : kUnreached;
            sweepRow(grey.row(y), distance, disparity, 0, width, 1);
            sweepRow(grey.row(y), distance, disparity, width - 1, -1, -1);
        }
    };
    const auto sweepColumns = [&](int strip) {
        const int begin = strip * kStripColumns, end = std::min(begin + kStripColumns, width);
        const auto step = [&](int y, int before) {
            HWY_DYNAMIC_DISPATCH(stepColumns)
            (grey.row(before), grey.row(y), distance_.row(before), distance_.row(y),
             map.disparity.row(before), map.disparity.row(y), begin, end);
        };
        for (int y = 1; y < height; ++y) step(y, y - 1);
        for (int y = height - 2; y >= 0; --y) step(y, y + 1);
    };
    for (int round = 0; round < kFillRounds; ++round) {
        parallelFor(row_strips, [&](int strip) { sweepRows(strip, round == 0); });
        parallelFor(column_strips, sweepColumns);
    }
    parallelFor(row_strips, [&](int strip) {
        const int end = std::min((strip + 1) * kStripRows, height);
        for (int y = strip * kStripRows; y < end; ++y) {
            const std::uint16_t* distance = distance_.row(y);
            const std::uint16_t* disparity = map.disparity.row(y);
            std::uint8_t* confidence = map.confidence.row(y);
            for (int x = 0; x < width; ++x)
                confidence[x] = !isDisparity(disparity[x]) ? 0
                                : distance[x] > 0          ? kFilledConfidence
                                                           : confidence[x];
        }
    });
}

}  // namespace kova::camera
#endif  // HWY_ONCE
