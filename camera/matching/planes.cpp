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

/// Census of one row; `rows` are the five rows around it, readable two pixels beyond both ends and
/// up to the next multiple of 64.
void censusRow(const std::uint8_t* const* rows, int width, std::uint8_t* const* out) {
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
                const auto neighbour = hn::LoadU(d8, rows[j] + x + i);
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

/// Mean of three with the weights 1 2 1; halves are rounded up, twice.
template <class D>
HWY_INLINE hn::Vec<D> mean121(hn::Vec<D> a, hn::Vec<D> b, hn::Vec<D> c) {
    return hn::AverageRound(hn::AverageRound(a, c), b);
}

template <class D>
HWY_INLINE void softenAt(D d, const std::uint8_t* const* rows, int left, int x, int right,
                         std::uint8_t limit, std::uint8_t* out) {
    const auto column = [&](int u) HWY_ATTR {
        return mean121<D>(hn::LoadU(d, rows[0] + u), hn::LoadU(d, rows[1] + u),
                          hn::LoadU(d, rows[2] + u));
    };
    const auto mean = mean121<D>(column(left), column(x), column(right));
    const auto centre = hn::LoadU(d, rows[1] + x), most = hn::Set(d, limit);
    hn::StoreU(
        hn::Max(hn::SaturatedSub(centre, most), hn::Min(hn::SaturatedAdd(centre, most), mean)), d,
        out + x);
}

/// @param rows  above, this and below
void softenRow(const std::uint8_t* const* rows, int width, std::uint8_t limit, std::uint8_t* out) {
    const hn::CappedTag<std::uint8_t, 1> d1;
    const int last = width - 1;
    camera::HWY_NAMESPACE::coverRow(
        hn::ScalableTag<std::uint8_t>(), 1, last,
        [&](auto d, int x) HWY_ATTR { softenAt(d, rows, x - 1, x, x + 1, limit, out); });
    softenAt(d1, rows, 0, 0, std::min(1, last), limit, out);
    softenAt(d1, rows, std::max(last - 1, 0), last, last, limit, out);
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

}  // namespace

void EyePlanes::resize(int width, int height, int reach) {
    width_ = width;
    height_ = height;
    left_ = (reach + 63) / 64 * 64;
    const int stride = left_ + (width + 63) / 64 * 64 + kRightReach;
    grey_.resize(stride, height);
    around_.resize(stride, 2 * kReachRows * stripsFor(height));
    for (auto& plane : census_) plane.resize(stride, height);
}

void EyePlanes::copyGrey(const ImageView<const std::uint8_t>& picture, int soften, int y,
                         std::uint8_t* row) const {
    if (soften > 0) {
        const std::uint8_t* const rows[3] = {picture.row(std::max(y - 1, 0)), picture.row(y),
                                             picture.row(std::min(y + 1, height_ - 1))};
        HWY_DYNAMIC_DISPATCH(softenRow)
        (rows, width_, static_cast<std::uint8_t>(std::min(soften, 255)), row + left_);
    } else {
        std::memcpy(row + left_, picture.row(y), static_cast<std::size_t>(width_));
    }
    extendRow(row, left_, width_, grey_.stride());
}

void EyePlanes::compute(const ImageView<const std::uint8_t>& picture, int soften, int strip) {
    const int begin = stripBegin(strip, height_), end = stripBegin(strip + 1, height_);
    for (int y = begin; y < end; ++y) copyGrey(picture, soften, y, grey_.row(y));
    // The rows around it belong to other strips, which may not be there yet.
    std::uint8_t *above[kReachRows], *below[kReachRows];
    for (int i = 0; i < kReachRows; ++i) {
        above[i] = around_.row(2 * kReachRows * strip + i);
        below[i] = around_.row(2 * kReachRows * strip + kReachRows + i);
        copyGrey(picture, soften, std::max(begin - kReachRows + i, 0), above[i]);
        copyGrey(picture, soften, std::min(end + i, height_ - 1), below[i]);
    }
    const auto row = [&](int y) {
        return (y < begin  ? above[y - begin + kReachRows]
                : y >= end ? below[y - end]
                           : grey_.row(y)) +
               left_;
    };
    for (int y = begin; y < end; ++y) {
        const std::uint8_t* rows[2 * kReachRows + 1];
        for (int j = 0; j <= 2 * kReachRows; ++j) rows[j] = row(y + j - kReachRows);
        std::uint8_t* out[kCensusPlanes];
        for (int k = 0; k < kCensusPlanes; ++k) out[k] = census_[k].row(y) + left_;
        HWY_DYNAMIC_DISPATCH(censusRow)(rows, width_, out);
        for (auto& plane : census_) extendRow(plane.row(y), left_, width_, plane.stride());
    }
}

}  // namespace kova::camera::sgm
#endif  // HWY_ONCE
