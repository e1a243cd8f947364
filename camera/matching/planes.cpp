#include "camera/matching/planes.h"

#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/planes.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

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

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera::sgm
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera::sgm {

HWY_EXPORT(censusRow);

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
    for (auto& plane : census_) plane.resize(stride, height);
}

void EyePlanes::copyGrey(const ImageView<const std::uint8_t>& picture, int begin, int end) {
    for (int y = begin; y < end; ++y) {
        std::uint8_t* row = grey_.row(y);
        std::memcpy(row + left_, picture.row(y), static_cast<std::size_t>(width_));
        extendRow(row, left_, width_, grey_.stride());
    }
}

void EyePlanes::computeCensus(int begin, int end) {
    for (int y = begin; y < end; ++y) {
        const std::uint8_t* rows[5];
        for (int j = 0; j < 5; ++j) rows[j] = grey(y + j - 2);
        std::uint8_t* out[kCensusPlanes];
        for (int k = 0; k < kCensusPlanes; ++k) out[k] = census_[k].row(y) + left_;
        HWY_DYNAMIC_DISPATCH(censusRow)(rows, width_, out);
        for (auto& plane : census_) extendRow(plane.row(y), left_, width_, plane.stride());
    }
}

}  // namespace kova::camera::sgm
#endif  // HWY_ONCE
