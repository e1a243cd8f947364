#include "camera/matching/upscale.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/upscale.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

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
template <class D>
HWY_INLINE hn::Vec<D> column(D d, const std::uint16_t* near, const std::uint16_t* far, int x) {
    return blend<2>(d, hn::LoadU(d, near + x), hn::LoadU(d, far + x));
}

/// The two pixels that come from pixel x of the small row, for as many x as there are lanes.
template <class D>
HWY_INLINE void upscaleAt(D d, const std::uint16_t* near, const std::uint16_t* far, int left, int x,
                          int right, std::uint16_t* out) {
    const auto centre = column(d, near, far, x);
    const auto even = doubled(d, blend<1>(d, centre, column(d, near, far, left)));
    const auto odd = doubled(d, blend<1>(d, centre, column(d, near, far, right)));
    hn::StoreInterleaved2(even, odd, d, out + 2 * x);
}

/// @param out  holds 2 * width elements
void upscaleRow(const std::uint16_t* near, const std::uint16_t* far, int width,
                std::uint16_t* out) {
    const hn::ScalableTag<std::uint16_t> d;
    const hn::CappedTag<std::uint16_t, 1> d1;
    const int lanes = static_cast<int>(hn::Lanes(d));
    upscaleAt(d1, near, far, 0, 0, std::min(1, width - 1), out);
    int x = 1;
    for (; x + lanes < width; x += lanes) upscaleAt(d, near, far, x - 1, x, x + 1, out);
    for (; x < width; ++x) upscaleAt(d1, near, far, x - 1, x, std::min(x + 1, width - 1), out);
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(upscaleRow);

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
        for (int x = 0; x < pairs; ++x) {
            out[2 * x] = in[x];
            out[2 * x + 1] = in[x];
        }
        if (full.width % 2 != 0)
            out[2 * pairs] = in[pairs];
    }
}

}  // namespace kova::camera
#endif  // HWY_ONCE
