#include "camera/detection/map_kernel.h"

#include "camera/base/disparity.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/detection/map_kernel.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "camera/base/row_loop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

void paintRowImpl(const MapRow& row, std::uint8_t* HWY_RESTRICT out) {
    coverRow(hn::ScalableTag<std::uint16_t>(), 0, row.width, [&](auto tag, int x) HWY_ATTR {
        const hn::Rebind<std::uint8_t, decltype(tag)> bytes;
        const auto zero = hn::Zero(tag);
        const auto d = hn::LoadU(tag, row.disparity + x);
        const auto sure = hn::PromoteTo(tag, hn::LoadU(bytes, row.confidence + x));
        const auto value = hn::PromoteTo(tag, hn::LoadU(bytes, row.value + x));
        const auto grey = hn::PromoteTo(tag, hn::LoadU(bytes, row.grey + x));
        const auto high = hn::LoadU(tag, row.high + x);
        const auto in_range = hn::And(hn::Eq(hn::Max(hn::LoadU(tag, row.low + x), d), d),
                                      hn::Eq(hn::Max(high, d), high));
        const auto measured =
            hn::And(hn::Lt(d, hn::Set(tag, kFirstReservedDisparity)),
                    hn::And(hn::Gt(sure, zero), hn::Ne(sure, hn::Set(tag, kFilledConfidence))));
        const auto visible = hn::Or(hn::Eq(value, hn::Set(tag, kMapObstacle)),
                                    hn::Lt(grey, hn::Set(tag, kMapSaturated)));
        const auto label = hn::IfThenElse(hn::And(in_range, hn::And(measured, visible)), value,
                                          hn::Set(tag, kMapUnsure));
        hn::StoreU(hn::TruncateTo(bytes, label), bytes, out + x);
    });
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(paintRowImpl);

void paintMapRow(const MapRow& row, std::uint8_t* out) {
    HWY_DYNAMIC_DISPATCH(paintRowImpl)(row, out);
}

void paintMapRowReference(const MapRow& row, std::uint8_t* out) {
    for (int x = 0; x < row.width; ++x) {
        const std::uint16_t d = row.disparity[x];
        const bool fits = d >= row.low[x] && d <= row.high[x] && isDisparity(d) &&
                          row.confidence[x] != kFilledConfidence && row.confidence[x] != 0;
        const bool visible = row.value[x] == kMapObstacle || row.grey[x] < kMapSaturated;
        out[x] = fits && visible ? row.value[x] : kMapUnsure;
    }
}

}  // namespace kova::camera
#endif
