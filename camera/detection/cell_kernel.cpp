#include "camera/detection/cell_kernel.h"

#include <algorithm>
#include <cstdlib>

#include "camera/base/disparity.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/detection/cell_kernel.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "camera/base/row_loop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

void depthColumns(const CellRows& rows, CellColumns& out) {
    coverRow(hn::ScalableTag<std::uint16_t>(), 0, rows.width, [&](auto tag, int x) HWY_ATTR {
        const hn::Rebind<std::uint8_t, decltype(tag)> bytes;
        const auto zero = hn::Zero(tag);
        const auto none = hn::Set(tag, 0xFFFF);
        const auto too_near = hn::Set(tag, kTooNearDisparity);
        const auto filled = hn::Set(tag, kFilledConfidence);
        auto count = zero, near = zero, sum = zero, sure = zero, low = none, high = zero;
        for (int i = 0; i < rows.count; ++i) {
            const auto d = hn::LoadU(tag, rows.disparity[i] + x);
            const auto c = hn::PromoteTo(tag, hn::LoadU(bytes, rows.confidence[i] + x));
            const auto ok =
                hn::And(hn::Lt(d, too_near), hn::And(hn::Gt(c, zero), hn::Ne(c, filled)));
            const auto value = hn::IfThenElseZero(ok, d);
            count = hn::Sub(count, hn::VecFromMask(tag, ok));
            near = hn::Sub(near, hn::VecFromMask(tag, hn::Eq(d, too_near)));
            sum = hn::Add(sum, value);
            sure = hn::Add(sure, hn::IfThenElseZero(ok, c));
            low = hn::Min(low, hn::IfThenElse(ok, d, none));
            high = hn::Max(high, value);
        }
        hn::StoreU(count, tag, out.count.data() + x);
        hn::StoreU(near, tag, out.too_near.data() + x);
        hn::StoreU(sum, tag, out.sum.data() + x);
        hn::StoreU(sure, tag, out.sure.data() + x);
        hn::StoreU(low, tag, out.low.data() + x);
        hn::StoreU(high, tag, out.high.data() + x);
    });
}

void changeColumns(const CellRows& rows, int width, CellColumns& out) {
    coverRow(hn::ScalableTag<std::uint16_t>(), 0, width, [&](auto tag, int x) HWY_ATTR {
        const hn::Rebind<std::uint8_t, decltype(tag)> bytes;
        auto over1 = hn::Zero(tag), over4 = hn::Zero(tag);
        for (int i = 0; i < rows.count; i += 2) {
            const auto change = [&](const std::uint8_t* from, int step) HWY_ATTR {
                const auto a = hn::LoadU(bytes, from + x), b = hn::LoadU(bytes, from + x + step);
                return hn::PromoteTo(tag, hn::Sub(hn::Max(a, b), hn::Min(a, b)));
            };
            over1 = hn::Add(over1, change(rows.grey[i], 1));
            over4 = hn::Add(over4, change(rows.compared[i], 4));
        }
        hn::StoreU(over1, tag, out.change1.data() + x);
        hn::StoreU(over4, tag, out.change4.data() + x);
    });
}

void sumColumnsImpl(const CellRows& rows, CellColumns& out) {
    depthColumns(rows, out);
    const int changes = std::max(0, rows.width - 4);
    changeColumns(rows, changes, out);
    std::fill(out.change1.begin() + changes, out.change1.end(), std::uint16_t{0});
    std::fill(out.change4.begin() + changes, out.change4.end(), std::uint16_t{0});
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(sumColumnsImpl);

void CellColumns::resize(int width) {
    for (auto* list : {&count, &too_near, &sum, &sure, &low, &high, &change1, &change4})
        list->resize(static_cast<std::size_t>(width));
}

void sumCellColumns(const CellRows& rows, CellColumns& columns) {
    HWY_DYNAMIC_DISPATCH(sumColumnsImpl)(rows, columns);
}

void sumCellColumnsReference(const CellRows& rows, CellColumns& columns) {
    const auto add = [](std::uint16_t& sum, int value) {
        sum = static_cast<std::uint16_t>(sum + value);
    };
    for (int x = 0; x < rows.width; ++x) {
        columns.count[x] = columns.too_near[x] = columns.sum[x] = columns.sure[x] = 0;
        columns.low[x] = 0xFFFF;
        columns.high[x] = columns.change1[x] = columns.change4[x] = 0;
        for (int i = 0; i < rows.count; ++i) {
            const std::uint16_t d = rows.disparity[i][x];
            const std::uint8_t sure = rows.confidence[i][x];
            add(columns.too_near[x], d == kTooNearDisparity);
            if (isDisparity(d) && sure != 0 && sure != kFilledConfidence) {
                add(columns.count[x], 1);
                add(columns.sum[x], d);
                add(columns.sure[x], sure);
                columns.low[x] = std::min(columns.low[x], d);
                columns.high[x] = std::max(columns.high[x], d);
            }
            if (i % 2 == 0 && x < rows.width - 4) {
                const std::uint8_t *grey = rows.grey[i] + x, *compared = rows.compared[i] + x;
                add(columns.change1[x], std::abs(grey[1] - grey[0]));
                add(columns.change4[x], std::abs(compared[4] - compared[0]));
            }
        }
    }
}

}  // namespace kova::camera
#endif
