#include "camera/matching/half_size.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/half_size.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// @param pairs  complete pairs of pixels in the rows
void halveRow(const std::uint8_t* above, const std::uint8_t* below, int pairs, std::uint8_t* out) {
    int x = 0;
#if HWY_TARGET != HWY_SCALAR && HWY_IS_LITTLE_ENDIAN
    const hn::ScalableTag<std::uint16_t> d16;
    const hn::Repartition<std::uint8_t, decltype(d16)> d8;
    const hn::Rebind<std::uint8_t, decltype(d16)> d8_half;
    const auto low = hn::Set(d16, 0xFF), two = hn::Set(d16, 2);
    const int lanes = static_cast<int>(hn::Lanes(d16));
    for (; x + lanes <= pairs; x += lanes) {
        const auto a = hn::BitCast(d16, hn::LoadU(d8, above + 2 * x));
        const auto b = hn::BitCast(d16, hn::LoadU(d8, below + 2 * x));
        const auto even = hn::Add(hn::And(a, low), hn::And(b, low));
        const auto odd = hn::Add(hn::ShiftRight<8>(a), hn::ShiftRight<8>(b));
        const auto mean = hn::ShiftRight<2>(hn::Add(hn::Add(even, odd), two));
        const hn::RebindToSigned<decltype(d16)> di16;
        hn::StoreU(hn::DemoteTo(d8_half, hn::BitCast(di16, mean)), d8_half, out + x);
    }
#endif
    for (; x < pairs; ++x)
        out[x] = static_cast<std::uint8_t>(
            (above[2 * x] + above[2 * x + 1] + below[2 * x] + below[2 * x + 1] + 2) / 4);
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(halveRow);

void halveRows(const ImageView<const std::uint8_t>& picture, const ImageView<std::uint8_t>& half,
               int begin, int end) {
    const int pairs = picture.width / 2;
    for (int y = begin; y < end; ++y) {
        const std::uint8_t* above = picture.row(2 * y);
        const std::uint8_t* below = picture.row(std::min(2 * y + 1, picture.height - 1));
        HWY_DYNAMIC_DISPATCH(halveRow)(above, below, pairs, half.row(y));
        if (half.width > pairs)
            half.at(pairs, y) =
                static_cast<std::uint8_t>((above[2 * pairs] + below[2 * pairs] + 1) / 2);
    }
}

}  // namespace kova::camera
#endif  // HWY_ONCE
