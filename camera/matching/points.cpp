#include "camera/matching/points.h"

#include <algorithm>
#include <limits>

#include "camera/base/disparity.h"
#include "camera/base/parallel.h"
#include "camera/matching/points_reference.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/points.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// As many whole vectors of a row as there are; returns where they end.
int pointsRowImpl(const std::uint16_t* HWY_RESTRICT disparity, int y, int width,
                  const PointTerms& t, float* HWY_RESTRICT points) {
    const hn::ScalableTag<float> df;
    const hn::RebindToSigned<decltype(df)> di;
    const hn::Rebind<std::uint16_t, decltype(df)> du16;
    const int lanes = static_cast<int>(hn::Lanes(df));
    const auto nan = hn::Set(df, std::numeric_limits<float>::quiet_NaN());
    const auto zero = hn::Zero(df);
    const auto reserved = hn::Set(di, kFirstReservedDisparity);
    const auto depth = hn::Set(df, t.depth);
    const auto offset = hn::Set(df, t.offset);
    const auto cx = hn::Set(df, t.cx);
    const auto per_fx = hn::Set(df, t.per_fx);
    const auto min_mm = hn::Set(df, t.min_mm);
    const auto max_mm = hn::Set(df, t.max_mm);
    const auto slope_y = hn::Set(df, (static_cast<float>(y) - t.cy) * t.per_fy);

    int x = 0;
    for (; x + lanes <= width; x += lanes) {
        const auto raw = hn::PromoteTo(di, hn::LoadU(du16, disparity + x));
        const auto d = hn::Add(hn::ConvertTo(df, raw), offset);
        const auto z = hn::Div(depth, d);
        const auto kept =
            hn::And(hn::And(hn::RebindMask(df, hn::Lt(raw, reserved)), hn::Gt(d, zero)),
                    hn::And(hn::Ge(z, min_mm), hn::Le(z, max_mm)));
        const auto column = hn::ConvertTo(df, hn::Iota(di, x));
        const auto slope_x = hn::Mul(hn::Sub(column, cx), per_fx);
        hn::StoreInterleaved3(hn::IfThenElse(kept, hn::Mul(slope_x, z), nan),
                              hn::IfThenElse(kept, hn::Mul(slope_y, z), nan),
                              hn::IfThenElse(kept, z, nan), df, points + 3 * x);
    }
    return x;
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(pointsRowImpl);

void computePoints(const ImageView<const std::uint16_t>& disparity,
                   const RectifiedGeometry& geometry, const PointLimits& limits, float* points) {
    constexpr int kBandRows = 16;
    const PointTerms terms = pointTerms(geometry, limits);
    const auto kernel = HWY_DYNAMIC_DISPATCH(pointsRowImpl);
    parallelFor((disparity.height + kBandRows - 1) / kBandRows, [&](int band) {
        const int end = std::min(disparity.height, (band + 1) * kBandRows);
        for (int y = band * kBandRows; y < end; ++y) {
            float* row = points + static_cast<std::ptrdiff_t>(y) * disparity.width * 3;
            const int x = kernel(disparity.row(y), y, disparity.width, terms, row);
            pointsRowReference(disparity.row(y), y, x, disparity.width, terms, row);
        }
    });
}

}  // namespace kova::camera
#endif  // HWY_ONCE
