#include "camera/detection/map_kernel.h"

#include "camera/base/disparity.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/detection/map_kernel.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

void paintRowImpl(const MapRow& row, std::uint8_t* HWY_RESTRICT out) {
    const hn::ScalableTag<std::uint16_t> tag;
    const hn::Rebind<std::uint8_t, decltype(tag)> bytes;
    const int lanes = static_cast<int>(hn::Lanes(tag));
    if (row.width < lanes) {
        paintMapRowReference(row, out);
        return;
    }
    const auto zero = hn::Zero(tag);
    const auto filled = hn::Set(tag, kFilledConfidence);
    const auto reserved = hn::Set(tag, kFirstReservedDisparity);
    const auto saturated = hn::Set(tag, kMapSaturated);
    const auto obstacle = hn::Set(tag, kMapObstacle);
    const auto unsure = hn::Set(tag, kMapUnsure);
    const auto load = [&](const std::uint8_t* p) {
        return hn::PromoteTo(tag, hn::LoadU(bytes, p));
    };
    for (int next = 0; next < row.width; next += lanes) {
        const int x = next + lanes <= row.width ? next : row.width - lanes;
        const auto d = hn::LoadU(tag, row.disparity + x);
        const auto sure = load(row.confidence + x);
        const auto value = load(row.value + x);
        const auto high = hn::LoadU(tag, row.high + x);
        const auto in_range = hn::And(hn::Eq(hn::Max(hn::LoadU(tag, row.low + x), d), d),
                                      hn::Eq(hn::Max(high, d), high));
        const auto measured =
            hn::And(hn::Lt(d, reserved), hn::And(hn::Gt(sure, zero), hn::Ne(sure, filled)));
        const auto visible = hn::Or(hn::Eq(value, obstacle), hn::Lt(load(row.grey + x), saturated));
        const auto label =
            hn::IfThenElse(hn::And(in_range, hn::And(measured, visible)), value, unsure);
        hn::StoreU(hn::DemoteTo(bytes, hn::BitCast(hn::RebindToSigned<decltype(tag)>(), label)),
                   bytes, out + x);
    }
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
