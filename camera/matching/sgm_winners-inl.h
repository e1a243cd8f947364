// Compiled once for every SIMD target, hence no #pragma once.
#if defined(KOVA_CAMERA_MATCHING_SGM_WINNERS_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef KOVA_CAMERA_MATCHING_SGM_WINNERS_INL
#undef KOVA_CAMERA_MATCHING_SGM_WINNERS_INL
#else
#define KOVA_CAMERA_MATCHING_SGM_WINNERS_INL
#endif

#include <algorithm>
#include <cstring>

#include "camera/matching/sgm_paths-inl.h"
#include "camera/matching/sgm_vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera::sgm {
namespace HWY_NAMESPACE {
namespace {

/// The winners of a column of pixels, with the sums that they are judged by.
struct LineWinners {
    alignas(64) std::uint16_t level[kCell];  ///< from the beginning of the range
    alignas(64) std::uint8_t before[kCell];  ///< sum one level below the winner; 255 if none
    alignas(64) std::uint8_t best[kCell];
    alignas(64) std::uint8_t after[kCell];
    alignas(64) std::uint8_t second[kCell];
};

/// The last path of all: moves it on by one pixel, adds it to the sums and finds the winners; at
/// most 256 levels.
///
/// @param total  working memory of a line per level
void advanceToWinners(Path& path, const std::uint8_t* cost, const std::uint8_t* grey_before,
                      const std::uint8_t* sum, std::uint8_t* total, LineWinners& winners) {
    const std::ptrdiff_t end = static_cast<std::ptrdiff_t>(path.range.size()) * kCell;
    const Vector one = hn::Set(d8, 1), two = hn::Set(d8, 2), most = hn::Set(d8, 255);
    alignas(64) std::uint8_t index[kCell];
    for (int lane = 0; lane < kCell; lane += lanes()) {
        Step step(path, lane, cost, grey_before);
        Vector best = most, before = most, after = most;
        Vector level = hn::Zero(d8), k_now = level, last = most;
        auto last_was_best = hn::Lt(most, most);
        for (std::ptrdiff_t i = lane; i < end; i += kCell) {
            const Vector next = step.advance(path.value + i, cost + i);
            const Vector all = hn::SaturatedAdd(hn::Load(d8, sum + i), next);
            hn::Store(all, d8, total + i);
            after = hn::IfThenElse(last_was_best, all, after);
            last_was_best = hn::Lt(all, best);
            level = hn::IfThenElse(last_was_best, k_now, level);
            before = hn::IfThenElse(last_was_best, last, before);
            best = hn::Min(best, all);
            last = all;
            k_now = hn::Add(k_now, one);
        }
        step.finish(path, lane);
        // k - level + 1 is 0, 1 or 2 for the winner and its neighbours.
        Vector second = most, distance = hn::Sub(one, level);
        for (std::ptrdiff_t i = lane; i < end; i += kCell) {
            const Vector all = hn::Load(d8, total + i);
            second = hn::IfThenElse(hn::Gt(distance, two), hn::Min(second, all), second);
            distance = hn::Add(distance, one);
        }
        hn::Store(level, d8, index + lane);
        hn::Store(before, d8, winners.before + lane);
        hn::Store(best, d8, winners.best + lane);
        hn::Store(hn::IfThenElse(last_was_best, most, after), d8, winners.after + lane);
        hn::Store(second, d8, winners.second + lane);
    }
    for (int lane = 0; lane < kCell; ++lane) winners.level[lane] = index[lane];
}

/// Finds the winners among any number of levels; only the widest searches come here.
void findWinners(const std::uint8_t* sums, int levels, LineWinners& winners) {
    for (int lane = 0; lane < kCell; ++lane) {
        const std::uint8_t* s = sums + lane;
        int level = 0, second = 255;
        for (int k = 1; k < levels; ++k)
            if (s[k * kCell] < s[level * kCell])
                level = k;
        for (int k = 0; k < levels; ++k)
            if (k < level - 1 || k > level + 1)
                second = std::min<int>(second, s[k * kCell]);
        winners.level[lane] = static_cast<std::uint16_t>(level);
        winners.before[lane] = level > 0 ? s[(level - 1) * kCell] : 255;
        winners.best[lane] = s[level * kCell];
        winners.after[lane] = level + 1 < levels ? s[(level + 1) * kCell] : 255;
        winners.second[lane] = static_cast<std::uint8_t>(second);
    }
}

/// floor(numerator / divisor) for numerators below 2^15 and divisors of at most 1052. In floating
/// point, half a numerator away from the next integer: no rounding reaches that far.
template <class D>
HWY_INLINE hn::Vec<D> quotient(D d16, hn::Vec<D> numerator, hn::Vec<D> divisor) {
    alignas(64) std::uint16_t n[kCell], m[kCell];
    hn::Store(numerator, d16, n);
    hn::Store(divisor, d16, m);
    const hn::CappedTag<std::int32_t, hn::MaxLanes(D())> d32;
    const hn::RebindToFloat<decltype(d32)> f32;
    const hn::Rebind<std::uint16_t, decltype(d32)> part;
    for (std::size_t i = 0; i < hn::Lanes(d16); i += hn::Lanes(d32)) {
        const auto a = hn::ConvertTo(f32, hn::PromoteTo(d32, hn::Load(part, n + i)));
        const auto b = hn::ConvertTo(f32, hn::PromoteTo(d32, hn::Load(part, m + i)));
        const auto q = hn::Div(hn::Add(a, hn::Set(f32, 0.5F)), b);
        hn::Store(hn::DemoteTo(part, hn::ConvertTo(d32, q)), part, n + i);
    }
    return hn::Load(d16, n);
}

/// judgeWinner() for a column's winners; the disparities as bytes, low and high.
void judgeWinners(const LineWinners& line, int x, const LevelRange& range, int min_disparity,
                  std::uint8_t* low, std::uint8_t* high) {
    const hn::CappedTag<std::uint16_t, kCell> d16;
    const hn::Rebind<std::uint8_t, decltype(d16)> narrow;
    const auto set = [&](int v) HWY_ATTR { return hn::Set(d16, static_cast<std::uint16_t>(v)); };
    for (std::size_t i = 0; i < kCell; i += hn::Lanes(d16)) {
        const auto level = hn::Load(d16, line.level + i);
        const auto before = hn::PromoteTo(d16, hn::Load(narrow, line.before + i));
        const auto best = hn::PromoteTo(d16, hn::Load(narrow, line.best + i));
        const auto after = hn::PromoteTo(d16, hn::Load(narrow, line.after + i));
        const auto second = hn::PromoteTo(d16, hn::Load(narrow, line.second + i));
        // refineWinner(); the slope may be negative, the numerator, which is of 16 bits, is not.
        const auto larger = hn::Sub(hn::Max(before, after), best);
        const auto smaller = hn::Sub(hn::Min(before, after), best);
        const auto span = hn::Sub(hn::Add(hn::Add(larger, larger), set(kBlunting)), smaller);
        const auto numerator = hn::Add(hn::Mul(hn::Sub(before, after), set(2 * kDisparityScale)),
                                       hn::Mul(span, set(1 + 2 * kDisparityScale)));
        const auto offset = quotient(d16, numerator, hn::Add(span, span));
        const auto pixels = hn::Add(level, set(min_disparity + range.begin));
        const auto refined = hn::Max(
            hn::Sub(hn::Add(hn::Mul(pixels, set(kDisparityScale)), offset), set(kDisparityScale)),
            set(1));
        const auto low_end = hn::Eq(level, hn::Zero(d16));
        const auto none = hn::Eq(pixels, hn::Zero(d16));
        const auto bad = hn::Or(
            hn::Or(hn::Gt(pixels, set(x)), hn::Eq(level, set(range.size() - 1))),
            hn::Or(hn::AndNot(none, low_end), hn::Lt(hn::Mul(second, set(100 - kUniquePercent)),
                                                     hn::Add(hn::Mul(best, set(100)), set(1)))));
        const auto value = hn::IfThenElse(none, set(1), refined);
        const auto disparity = hn::IfThenElse(bad, set(kInvalidDisparity), value);
        hn::Store(hn::TruncateTo(narrow, disparity), narrow, low + i);
        hn::Store(hn::TruncateTo(narrow, hn::ShiftRight<8>(disparity)), narrow, high + i);
    }
}

/// The winners of a cell, column by column.
struct CellWinners {
    enum { kLow, kHigh, kBest, kSecond, kPlanes };
    alignas(64) std::uint8_t planes[kPlanes][kCell * kCell];

    std::uint8_t* column(int plane, int x) { return planes[plane] + x * kCell; }
};

/// Writes a cell's winners row by row.
void storeWinners(const Band& band, int cell, CellWinners& columns) {
    CellWinners rows;
    for (int i = 0; i < CellWinners::kPlanes; ++i)
        transpose(columns.planes[i], kCell, rows.planes[i], kCell);
    const int x0 = cell * kCell, count = std::min(kCell, band.left.width() - x0);
    for (int row = 0; row < band.y1 - band.y0; ++row) {
        const int y = band.y0 + row;
        const std::uint8_t *low = rows.column(CellWinners::kLow, row),
                           *high = rows.column(CellWinners::kHigh, row);
        std::uint16_t* disparity = band.winners.disparity.row(y) + x0;
        for (int x = 0; x < count; ++x)
            disparity[x] = static_cast<std::uint16_t>(low[x] | high[x] << 8);
        const auto bytes = static_cast<std::size_t>(count);
        std::memcpy(band.winners.best.row(y) + x0, rows.column(CellWinners::kBest, row), bytes);
        std::memcpy(band.winners.second.row(y) + x0, rows.column(CellWinners::kSecond, row), bytes);
    }
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera::sgm
HWY_AFTER_NAMESPACE();

#endif
