#include "camera/matching/median.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/median.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "camera/base/row_loop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

template <class V>
HWY_INLINE void sort(V& a, V& b) {
    const V least = hn::Min(a, b);
    b = hn::Max(a, b);
    a = least;
}

template <class V>
HWY_INLINE void sort3(V& a, V& b, V& c) {
    sort(a, b);
    sort(b, c);
    sort(a, b);
}

/// As many pixels as there are lanes; all neighbours are inside of the map.
template <class D>
HWY_INLINE void medianOf(D d, const std::uint16_t* const* rows, int x, std::uint16_t* out) {
    using V = hn::Vec<D>;
    const V reserved = hn::Set(d, kFirstReservedDisparity);
    const V centre = hn::LoadU(d, rows[1] + x);
    const auto at = [&](int row, int i) HWY_ATTR {
        const V v = hn::LoadU(d, rows[row] + x + i);
        return hn::IfThenElse(hn::Lt(v, reserved), v, centre);
    };
    V low[3], middle[3], high[3];
    for (int i = 0; i < 3; ++i) {
        low[i] = at(0, i - 1);
        middle[i] = i == 1 ? centre : at(1, i - 1);
        high[i] = at(2, i - 1);
        sort3(low[i], middle[i], high[i]);
    }
    V a = hn::Max(hn::Max(low[0], low[1]), low[2]);
    sort3(middle[0], middle[1], middle[2]);
    V b = middle[1];
    V c = hn::Min(hn::Min(high[0], high[1]), high[2]);
    sort3(a, b, c);
    hn::StoreU(hn::IfThenElse(hn::Lt(centre, reserved), b, centre), d, out + x);
}

/// The pixels [1, width - 1) of a row.
void medianRow(const std::uint16_t* const* rows, int width, std::uint16_t* out) {
    coverRow(hn::ScalableTag<std::uint16_t>(), 1, width - 1,
             [&](auto d, int x) HWY_ATTR { medianOf(d, rows, x, out); });
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(medianRow);

std::uint16_t medianReference(const ImageView<const std::uint16_t>& in, int x, int y) {
    const std::uint16_t centre = in.at(x, y);
    if (!isDisparity(centre))
        return centre;
    std::uint16_t values[9];
    int count = 0;
    for (int v = y - 1; v <= y + 1; ++v)
        for (int u = x - 1; u <= x + 1; ++u) {
            const bool inside = u >= 0 && v >= 0 && u < in.width && v < in.height;
            values[count++] = inside && isDisparity(in.at(u, v)) ? in.at(u, v) : centre;
        }
    std::nth_element(values, values + 4, values + 9);
    return values[4];
}

namespace {

/// So much of a row outside of the map is there at once.
constexpr int kOutside = 256;

/// A pixel of the first or last column, in the middle of three columns.
std::uint16_t medianAtSide(const ImageView<const std::uint16_t>& in, int x, int y) {
    std::uint16_t part[3][3];
    const std::uint16_t* rows[3] = {part[0], part[1], part[2]};
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 3; ++i) {
            const int u = x + i - 1, v = y + j - 1;
            const bool inside = u >= 0 && v >= 0 && u < in.width && v < in.height;
            part[j][i] = inside ? in.at(u, v) : kInvalidDisparity;
        }
    std::uint16_t out[3];
    HWY_DYNAMIC_DISPATCH(medianRow)(rows, 3, out);
    return out[1];
}

}  // namespace

void medianRows(const ImageView<const std::uint16_t>& in, const ImageView<std::uint16_t>& out,
                int begin, int end) {
    std::uint16_t outside[kOutside];
    std::fill(outside, outside + kOutside, kInvalidDisparity);
    for (int y = begin; y < end; ++y) {
        const bool first = y == 0, last = y + 1 == in.height;
        const int chunk = first || last ? std::min(kOutside, in.width) : in.width;
        for (int x = 0; x + 2 < in.width; x += chunk - 2) {
            const std::uint16_t* rows[3] = {first ? outside : in.row(y - 1) + x, in.row(y) + x,
                                            last ? outside : in.row(y + 1) + x};
            HWY_DYNAMIC_DISPATCH(medianRow)(rows, std::min(chunk, in.width - x), out.row(y) + x);
        }
        out.at(0, y) = medianAtSide(in, 0, y);
        out.at(in.width - 1, y) = medianAtSide(in, in.width - 1, y);
    }
}

}  // namespace kova::camera
#endif  // HWY_ONCE
