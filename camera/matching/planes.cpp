#include "camera/matching/planes.h"

#include <algorithm>
#include <cstring>

#include "camera/matching/strips.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/planes.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "camera/base/row_loop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera::sgm {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

HWY_INLINE void censusApart(const std::uint8_t* const* rows, int apart, int width,
                            std::uint8_t* const* out) {
    const hn::CappedTag<std::uint8_t, 64> d8;
    const int lanes = static_cast<int>(hn::Lanes(d8));
    for (int x = 0; x < width; x += lanes) {
        const auto centre = hn::LoadU(d8, rows[2] + x);
        int plane = 0, bit = 0;
        auto bits = hn::Zero(d8);
        for (int j = 0; j < 5; ++j) {
            for (int i = -2; i <= 2; ++i) {
                if (i == 0 && j == 2)
                    continue;
                const auto neighbour = hn::LoadU(d8, rows[j] + x + i * apart);
                const auto value = hn::Set(d8, static_cast<std::uint8_t>(1 << bit));
                bits = hn::Or(bits, hn::IfThenElseZero(hn::Lt(neighbour, centre), value));
                if (++bit == 8) {
                    hn::StoreU(bits, d8, out[plane++] + x);
                    bits = hn::Zero(d8);
                    bit = 0;
                }
            }
        }
    }
}

/// Census of one row; `rows` are the five rows around it that are compared, readable twice `apart`
/// beyond both ends and up to the next multiple of 64.
///
/// @param apart  distance of the columns
void censusRow(const std::uint8_t* const* rows, int apart, int width, std::uint8_t* const* out) {
    // Known distances make addresses that cost nothing.
    if (apart == 1)
        censusApart(rows, 1, width, out);
    else
        censusApart(rows, apart, width, out);
}

/// Mean of three with the weights 1 2 1; halves are rounded up, twice.
template <class D>
HWY_INLINE hn::Vec<D> mean121(hn::Vec<D> a, hn::Vec<D> b, hn::Vec<D> c) {
    return hn::AverageRound(hn::AverageRound(a, c), b);
}

/// Mean of the vectors at(-1) to at(1), or at(-2) to at(2) with the weights 1 4 6 4 1.
template <class D, class At>
HWY_INLINE hn::Vec<D> meanAround(D /*d*/, bool wide, const At& at) {
    const auto a = at(-1), b = at(0), c = at(1);
    const auto mean = mean121<D>(a, b, c);
    return wide ? mean121<D>(mean121<D>(at(-2), a, b), mean, mean121<D>(b, c, at(2))) : mean;
}

/// @param rows   the row is rows[0], those above have negative indices
/// @param place  gives the column that stands for the one `i` further right
template <class D, class Place>
HWY_INLINE void softenAt(D d, const std::uint8_t* const* rows, bool wide, const Place& place,
                         std::uint8_t limit, std::uint8_t* out) {
    const auto column = [&](int i) HWY_ATTR {
        const int u = place(i);
        return meanAround(d, wide, [&](int j) HWY_ATTR { return hn::LoadU(d, rows[j] + u); });
    };
    const auto mean = meanAround(d, wide, column);
    const auto centre = hn::LoadU(d, rows[0] + place(0)), most = hn::Set(d, limit);
    hn::StoreU(
        hn::Max(hn::SaturatedSub(centre, most), hn::Min(hn::SaturatedAdd(centre, most), mean)), d,
        out + place(0));
}

HWY_INLINE void softenWith(const std::uint8_t* const* rows, bool wide, int width,
                           std::uint8_t limit, std::uint8_t* out) {
    const int reach = wide ? 2 : 1, last = width - 1;
    camera::HWY_NAMESPACE::coverRow(
        hn::ScalableTag<std::uint8_t>(), reach, width - reach, [&](auto d, int x) HWY_ATTR {
            softenAt(
                d, rows, wide, [x](int i) { return x + i; }, limit, out);
        });
    const auto at = [&](int x) HWY_ATTR {
        softenAt(
            hn::CappedTag<std::uint8_t, 1>(), rows, wide,
            [=](int i) { return std::clamp(x + i, 0, last); }, limit, out);
    };
    for (int x = 0; x < std::min(reach, width); ++x) {
        at(x);
        at(last - x);
    }
}

/// @param rows  the row is rows[0], one row above and below it are read, or two
void softenRow(const std::uint8_t* const* rows, bool wide, int width, std::uint8_t limit,
               std::uint8_t* out) {
    if (wide)
        softenWith(rows, true, width, limit, out);
    else
        softenWith(rows, false, width, limit, out);
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera::sgm
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera::sgm {

HWY_EXPORT(censusRow);
HWY_EXPORT(softenRow);

namespace {

/// Continues a row beyond both ends of the picture.
void extendRow(std::uint8_t* row, int left, int width, std::ptrdiff_t stride) {
    std::memset(row, row[left], static_cast<std::size_t>(left));
    std::memset(row + left + width, row[left + width - 1],
                static_cast<std::size_t>(stride - left - width));
}

void softenOne(const ImageView<const std::uint8_t>& picture, const Denoising& denoising, int y,
               std::uint8_t* out) {
    constexpr int kReach = 2;
    const std::uint8_t* rows[2 * kReach + 1];
    for (int j = -kReach; j <= kReach; ++j)
        rows[kReach + j] = picture.row(std::clamp(y + j, 0, picture.height - 1));
    const auto limit = static_cast<std::uint8_t>(std::min(denoising.limit, 255));
    HWY_DYNAMIC_DISPATCH(softenRow)(rows + kReach, denoising.wide, picture.width, limit, out);
}

}  // namespace

void softenRows(const ImageView<const std::uint8_t>& picture, const Denoising& denoising,
                const ImageView<std::uint8_t>& out, int begin, int end) {
    for (int y = begin; y < end; ++y) softenOne(picture, denoising, y, out.row(y));
}

void EyePlanes::resize(int width, int height, int reach) {
    width_ = width;
    height_ = height;
    left_ = (reach + 63) / 64 * 64;
    const int stride = left_ + (width + 63) / 64 * 64 + kRightReach;
    grey_.resize(stride, height);
    around_.resize(stride, 2 * kReachRows * stripsFor(height));
    for (auto& plane : census_) plane.resize(stride, height);
}

void EyePlanes::copyGrey(const ImageView<const std::uint8_t>& picture, const Denoising& denoising,
                         int y, std::uint8_t* row) const {
    if (denoising.limit > 0) {
        softenOne(picture, denoising, y, row + left_);
    } else {
        std::memcpy(row + left_, picture.row(y), static_cast<std::size_t>(width_));
    }
    extendRow(row, left_, width_, grey_.stride());
}

void EyePlanes::compute(const ImageView<const std::uint8_t>& picture, const Denoising& denoising,
                        int strip) {
    const int begin = stripBegin(strip, height_), end = stripBegin(strip + 1, height_);
    const int apart = denoising.rows_apart, reach = 2 * apart;
    for (int y = begin; y < end; ++y) copyGrey(picture, denoising, y, grey_.row(y));
    // The rows around it belong to other strips, which may not be there yet.
    std::uint8_t *above[kReachRows], *below[kReachRows];
    for (int i = 0; i < reach; ++i) {
        above[i] = around_.row(2 * kReachRows * strip + i);
        below[i] = around_.row(2 * kReachRows * strip + kReachRows + i);
        copyGrey(picture, denoising, std::max(begin - reach + i, 0), above[i]);
        copyGrey(picture, denoising, std::min(end + i, height_ - 1), below[i]);
    }
    const auto row = [&](int y) {
        return (y < begin  ? above[y - begin + reach]
                : y >= end ? below[y - end]
                           : grey_.row(y)) +
               left_;
    };
    for (int y = begin; y < end; ++y) {
        const std::uint8_t* rows[5];
        for (int j = 0; j < 5; ++j) rows[j] = row(y + (j - 2) * apart);
        std::uint8_t* out[kCensusPlanes];
        for (int k = 0; k < kCensusPlanes; ++k) out[k] = census_[k].row(y) + left_;
        HWY_DYNAMIC_DISPATCH(censusRow)(rows, denoising.columns_apart, width_, out);
        for (auto& plane : census_) extendRow(plane.row(y), left_, width_, plane.stride());
    }
}

}  // namespace kova::camera::sgm
#endif  // HWY_ONCE
