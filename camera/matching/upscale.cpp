#include "camera/matching/upscale.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/upscale.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "camera/base/row_loop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// Three parts of `near` and one of `far` if they agree, else `near`; reserved values stay. Both
/// are at most 1/16 px * 2^13, so four of them fit 16 bits where they are disparities.
///
/// @tparam kRounding  of a fourth: with 2 halves are rounded up, with 1 down
template <int kRounding, class D>
HWY_INLINE hn::Vec<D> blend(D d, hn::Vec<D> near, hn::Vec<D> far) {
    const auto change = hn::Sub(hn::Max(near, far), hn::Min(near, far));
    // near + (far - near + kRounding) / 4, with the difference moved up to stay positive.
    const auto moved = hn::Add(hn::Sub(far, near), hn::Set(d, kDisparityScale * 4 + kRounding));
    const auto mixed =
        hn::Sub(hn::Add(near, hn::ShiftRight<2>(moved)), hn::Set(d, kDisparityScale));
    const auto agree = hn::And(hn::Lt(change, hn::Set(d, kDisparityScale + 1)),
                               hn::Lt(hn::Max(near, far), hn::Set(d, kFirstReservedDisparity)));
    return hn::IfThenElse(agree, mixed, near);
}

template <class D>
HWY_INLINE hn::Vec<D> doubled(D d, hn::Vec<D> v) {
    return hn::IfThenElse(hn::Lt(v, hn::Set(d, kFirstReservedDisparity)), hn::Add(v, v), v);
}

// Halves are rounded up between rows and down between columns, so that nothing moves in the mean.

/// @param out  holds 2 * width elements
void upscaleRow(const std::uint16_t* near, const std::uint16_t* far, int width,
                std::uint16_t* out) {
    constexpr int kChunk = 512;
    const hn::ScalableTag<std::uint16_t> all;
    std::uint16_t between[kChunk + 2];  // the rows' mixture, from the pixel before the chunk on
    for (int begin = 0; begin < width; begin += kChunk) {
        const int end = std::min(begin + kChunk, width);
        const auto at = [&](int x) { return between + (x - begin + 1); };
        coverRow(
            all, std::max(begin - 1, 0), std::min(end + 1, width), [&](auto d, int x) HWY_ATTR {
                hn::StoreU(blend<2>(d, hn::LoadU(d, near + x), hn::LoadU(d, far + x)), d, at(x));
            });
        if (begin == 0)
            *at(-1) = *at(0);
        if (end == width)
            *at(width) = *at(width - 1);
        coverRow(all, begin, end, [&](auto d, int x) HWY_ATTR {
            const auto centre = hn::LoadU(d, at(x));
            const auto even = blend<1>(d, centre, hn::LoadU(d, at(x - 1)));
            const auto odd = blend<1>(d, centre, hn::LoadU(d, at(x + 1)));
            hn::StoreInterleaved2(doubled(d, even), doubled(d, odd), d, out + 2 * x);
        });
    }
}

/// Every byte twice.
void repeatBytes(const std::uint8_t* in, int count, std::uint8_t* out) {
    coverRow(hn::ScalableTag<std::uint8_t>(), 0, count, [&](auto d, int x) HWY_ATTR {
        const auto v = hn::LoadU(d, in + x);
        hn::StoreInterleaved2(v, v, d, out + 2 * x);
    });
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(upscaleRow);
HWY_EXPORT(repeatBytes);

void upscaleDisparityRow(const ImageView<const std::uint16_t>& half, int y, std::uint16_t* full) {
    const int far = std::clamp(y / 2 + (y % 2 == 0 ? -1 : 1), 0, half.height - 1);
    HWY_DYNAMIC_DISPATCH(upscaleRow)(half.row(y / 2), half.row(far), half.width, full);
}

void upscaleDisparityRows(const ImageView<const std::uint16_t>& half,
                          const ImageView<std::uint16_t>& full, int begin, int end) {
    for (int y = begin; y < end; ++y) upscaleDisparityRow(half, y, full.row(y));
}

void upscaleByteRows(const ImageView<const std::uint8_t>& half, const ImageView<std::uint8_t>& full,
                     int begin, int end) {
    for (int y = begin; y < end; ++y) {
        const std::uint8_t* in = half.row(y / 2);
        std::uint8_t* out = full.row(y);
        if (y > begin && y % 2 == 1) {
            std::memcpy(out, full.row(y - 1), static_cast<std::size_t>(full.width));
            continue;
        }
        const int pairs = full.width / 2;
        HWY_DYNAMIC_DISPATCH(repeatBytes)(in, pairs, out);
        if (full.width % 2 != 0)
            out[2 * pairs] = in[pairs];
    }
}

}  // namespace kova::camera
#endif  // HWY_ONCE
