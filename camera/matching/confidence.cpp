#include "camera/matching/confidence.h"

#include <algorithm>
#include <cstdlib>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/confidence.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "camera/base/row_loop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

constexpr int kNoScore = 256;  // behind the last one

/// All neighbours are inside of the map.
template <class D>
HWY_INLINE hn::Vec<D> roughness(D d, const std::uint16_t* const* rows, int x) {
    const auto centre = hn::LoadU(d, rows[2] + x);
    const auto limit = hn::Set(d, kDisparityScale);
    auto sum = hn::Zero(d);
    for (int j = 0; j < 5; ++j) {
        for (int i = -2; i <= 2; ++i) {
            if (i == 0 && j == 2)
                continue;
            const auto v = hn::LoadU(d, rows[j] + x + i);
            const auto change = hn::Sub(hn::Max(v, centre), hn::Min(v, centre));
            sum = hn::Add(sum, hn::Min(change, limit));
        }
    }
    return sum;
}

/// The score, or kNoScore where there is no disparity.
template <class D>
HWY_INLINE hn::Vec<D> scoreOf(D d, const std::uint16_t* const* rows, const std::uint8_t* best,
                              const std::uint8_t* second, int x) {
    const hn::Rebind<std::uint8_t, D> d8;
    const auto centre = hn::LoadU(d, rows[2] + x);
    const auto margin = hn::Sub(hn::PromoteTo(d, hn::LoadU(d8, second + x)),
                                hn::PromoteTo(d, hn::LoadU(d8, best + x)));
    const auto sum =
        hn::Add(hn::Mul(hn::Min(margin, hn::Set(d, kMaxMargin)), hn::Set(d, kMarginWeight)),
                hn::Sub(hn::Set(d, kMaxRoughness), roughness(d, rows, x)));
    const auto score = hn::Min(hn::ShiftRight<2>(sum), hn::Set(d, kNoScore - 1));
    return hn::IfThenElse(hn::Lt(centre, hn::Set(d, kFirstReservedDisparity)), score,
                          hn::Set(d, kNoScore));
}

/// The pixels [2, width - 2) of a row.
void scoreRow(const std::uint16_t* const* rows, const std::uint8_t* best,
              const std::uint8_t* second, int width, std::uint16_t* out) {
    coverRow(hn::ScalableTag<std::uint16_t>(), 2, width - 2, [&](auto d, int x) HWY_ATTR {
        hn::StoreU(scoreOf(d, rows, best, second, x), d, out + x);
    });
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(scoreRow);

namespace {

int roughnessAt(const ImageView<const std::uint16_t>& disparity, int x, int y) {
    int sum = 0;
    for (int v = y - 2; v <= y + 2; ++v)
        for (int u = x - 2; u <= x + 2; ++u) {
            const bool inside = u >= 0 && v >= 0 && u < disparity.width && v < disparity.height;
            sum += inside ? std::min(std::abs(disparity.at(u, v) - disparity.at(x, y)),
                                     kDisparityScale)
                          : kDisparityScale;
        }
    return sum;
}

}  // namespace

std::uint8_t rateReference(const ImageView<const std::uint16_t>& disparity,
                           const sgm::Winners& winners, const ConfidenceTable& table, int x,
                           int y) {
    if (!isDisparity(disparity.at(x, y)))
        return 0;
    const int margin = winners.second.at(x, y) - winners.best.at(x, y);
    return table[static_cast<std::size_t>(confidenceScore(roughnessAt(disparity, x, y), margin))];
}

void rateRows(const ImageView<const std::uint16_t>& disparity, const sgm::Winners& winners,
              const ConfidenceTable& table, const ImageView<std::uint8_t>& confidence, int begin,
              int end) {
    const int width = disparity.width, height = disparity.height;
    constexpr int kChunk = 512, kSide = 2;
    std::uint16_t scores[kChunk], outside[kChunk];
    std::fill(outside, outside + kChunk, kInvalidDisparity);
    std::array<std::uint8_t, 257> worth{};  // the last one is of pixels without a disparity
    std::copy(table.begin(), table.end(), worth.begin());
    for (int y = begin; y < end; ++y) {
        std::uint8_t* out = confidence.row(y);
        const std::uint8_t *best = winners.best.row(y), *second = winners.second.row(y);
        for (int x0 = 0; x0 + 2 * kSide < width; x0 += kChunk - 2 * kSide) {
            const int count = std::min(kChunk, width - x0);
            const std::uint16_t* rows[5];
            for (int j = 0; j < 5; ++j) {
                const int v = y + j - 2;
                rows[j] = v >= 0 && v < height ? disparity.row(v) + x0 : outside;
            }
            HWY_DYNAMIC_DISPATCH(scoreRow)(rows, best + x0, second + x0, count, scores);
            for (int i = kSide; i < count - kSide; ++i) out[x0 + i] = worth[scores[i]];
        }
        for (int x = 0; x < std::min(kSide, width); ++x) {
            out[x] = rateReference(disparity, winners, table, x, y);
            out[width - 1 - x] = rateReference(disparity, winners, table, width - 1 - x, y);
        }
    }
}

}  // namespace kova::camera
#endif  // HWY_ONCE
