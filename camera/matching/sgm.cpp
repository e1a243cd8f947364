#include "camera/matching/sgm.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/sgm.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera::sgm {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

// A line of kCell bytes is one vector with AVX-512, two with AVX2, four elsewhere.
using Tag = hn::CappedTag<std::uint8_t, kCell>;
using Vector = hn::Vec<Tag>;
constexpr Tag d8;
constexpr int kRowsAround = kCell + 2 * kHaloRows;

int lanes() {
    return static_cast<int>(hn::Lanes(d8));
}

struct Band {
    const EyePlanes& left;
    const EyePlanes& right;
    const Search& search;
    const LevelRange* ranges;  ///< of this band's cells
    BandMemory& memory;
    Winners& winners;
    int y0;
};

// ---- Costs -----------------------------------------------------------------------------------

/// Three census planes of a row, seen from a column.
struct CensusRow {
    const std::uint8_t *a, *b, *c;

    CensusRow(const EyePlanes& eye, int x, int y)
        : a(eye.census(0, y) + x), b(eye.census(1, y) + x), c(eye.census(2, y) + x) {}
};

HWY_INLINE Vector bits(Vector a, Vector b, Vector c) {
    return hn::Add(hn::Add(hn::PopulationCount(a), hn::PopulationCount(b)), hn::PopulationCount(c));
}

/// Hamming distances of one pixel to `lanes()` partners, from `r` on to the right.
HWY_INLINE Vector hammingOfPixel(const CensusRow& l, const CensusRow& r, std::ptrdiff_t shift) {
    return bits(hn::Xor(hn::Set(d8, *l.a), hn::LoadU(d8, r.a + shift)),
                hn::Xor(hn::Set(d8, *l.b), hn::LoadU(d8, r.b + shift)),
                hn::Xor(hn::Set(d8, *l.c), hn::LoadU(d8, r.c + shift)));
}

constexpr int kRawLevels = BandMemory::kRawLevels, kRawStride = BandMemory::kRawStride;

/// Hamming distances of `count` levels from the disparity `first` on, for the 66 pixels around the
/// cell's 64. The last two pixels have their levels in the lanes: a vector for each level would be
/// as dear as that of the other 64.
void rawRow(const Band& band, int x0, int y, int first, int count, std::uint8_t* raw) {
    for (int x = 0; x < kCell; x += lanes()) {
        const CensusRow l(band.left, x0 - 1 + x, y), r(band.right, x0 - 1 + x - first, y);
        const Vector a = hn::LoadU(d8, l.a), b = hn::LoadU(d8, l.b), c = hn::LoadU(d8, l.c);
        std::uint8_t* out = raw + x;
        for (std::ptrdiff_t k = 0; k < count; ++k, out += kRawStride)
            hn::Store(bits(hn::Xor(a, hn::LoadU(d8, r.a - k)), hn::Xor(b, hn::LoadU(d8, r.b - k)),
                           hn::Xor(c, hn::LoadU(d8, r.c - k))),
                      d8, out);
    }
    alignas(64) std::uint8_t tail[2][kRawLevels];
    for (int x = 0; x < 2; ++x) {
        const int column = x0 - 1 + kCell + x;
        const CensusRow l(band.left, column, y);
        // Levels go against the columns: the first one is the last lane.
        const CensusRow r(band.right, column - first - (kRawLevels - 1), y);
        for (int k = (kRawLevels - count) / lanes() * lanes(); k < kRawLevels; k += lanes())
            hn::Store(hammingOfPixel(l, r, k), d8, tail[x] + k);
    }
    std::uint8_t* out = raw + kCell;
    for (int k = 0; k < count; ++k, out += kRawStride) {
        out[0] = tail[0][kRawLevels - 1 - k];
        out[1] = tail[1][kRawLevels - 1 - k];
    }
}

/// Hamming distances of a row for the 64 pixels from x0, summed over three columns.
///
/// @param sums   receives them, a line per level
/// @param costs  unless null, receives the costs of the row before: the sums with those of the two
///               rows before, `before` and `earlier`
void boxRow(const Band& band, int x0, int y, const LevelRange& range, std::uint8_t* sums,
            const std::uint8_t* before, const std::uint8_t* earlier, std::uint8_t* costs) {
    std::uint8_t* raw = band.memory.raw;
    const int first = band.search.min_disparity + range.begin;
    for (int begin = 0; begin < range.size(); begin += kRawLevels) {
        const int count = std::min(kRawLevels, range.size() - begin);
        rawRow(band, x0, y, first + begin, count, raw);
        for (int x = 0; x < kCell; x += lanes()) {
            const std::uint8_t* from = raw + x;
            std::size_t i = static_cast<std::size_t>(begin) * kCell + static_cast<std::size_t>(x);
            for (int k = 0; k < count; ++k, from += kRawStride, i += kCell) {
                const Vector sum = hn::Add(hn::Add(hn::Load(d8, from), hn::LoadU(d8, from + 1)),
                                           hn::LoadU(d8, from + 2));
                hn::Store(sum, d8, sums + i);
                if (!costs)
                    continue;
                const Vector box =
                    hn::Add(sum, hn::Add(hn::Load(d8, before + i), hn::Load(d8, earlier + i)));
                hn::Store(hn::ShiftRight<3>(box), d8, costs + i);
            }
        }
    }
}

/// Costs of the rows [begin, end) around a cell into memory.rows, whose first row is
/// y0 - kHaloRows; the grey values follow the levels.
void costRows(const Band& band, int x0, const LevelRange& range, int begin, int end) {
    const std::size_t stride = BandMemory::pixelStride(range.size());
    std::uint8_t *earlier = band.memory.boxed[0], *before = band.memory.boxed[1],
                 *now = band.memory.boxed[2];
    boxRow(band, x0, begin - 1, range, earlier, nullptr, nullptr, nullptr);
    boxRow(band, x0, begin, range, before, nullptr, nullptr, nullptr);
    for (int y = begin; y < end; ++y) {
        std::uint8_t* out =
            band.memory.rows + static_cast<std::size_t>(y - band.y0 + kHaloRows) * stride;
        boxRow(band, x0, y + 1, range, now, before, earlier, out);
        std::memcpy(out + static_cast<std::size_t>(range.size()) * kCell, band.left.grey(y) + x0,
                    kCell);
        std::uint8_t* const free = earlier;
        earlier = before;
        before = now;
        now = free;
    }
}

// ---- Transposing -----------------------------------------------------------------------------

#if HWY_TARGET == HWY_SCALAR
/// Transposes 64x64 bytes.
void transpose(const std::uint8_t* from, std::size_t from_stride, std::uint8_t* to,
               std::size_t to_stride) {
    for (std::size_t row = 0; row < kCell; ++row)
        for (std::size_t column = 0; column < kCell; ++column)
            to[column * to_stride + row] = from[row * from_stride + column];
}
#else
/// 16 bytes each of rows that are 16 apart, in the blocks of a vector.
template <class D>
HWY_INLINE hn::Vec<D> loadBlocks(D d, const std::uint8_t* from, std::size_t stride) {
    if constexpr (hn::MaxLanes(D()) > 16) {
        const hn::Half<D> half;
        return hn::Combine(d, loadBlocks(half, from + stride * hn::Lanes(half), stride),
                           loadBlocks(half, from, stride));
    } else {
        return hn::Load(d, from);
    }
}

/// One of four steps that transpose 16x16 bytes, in every block of the vectors.
HWY_INLINE void interleave(const Vector* in, Vector* out) {
    for (int i = 0; i < 8; ++i) {
        out[2 * i] = hn::InterleaveLower(d8, in[i], in[i + 8]);
        out[2 * i + 1] = hn::InterleaveUpper(d8, in[i], in[i + 8]);
    }
}

/// Transposes 64x64 bytes.
void transpose(const std::uint8_t* from, std::size_t from_stride, std::uint8_t* to,
               std::size_t to_stride) {
    for (std::size_t row = 0; row < kCell; row += hn::Lanes(d8)) {
        for (std::size_t column = 0; column < kCell; column += 16) {
            Vector a[16], b[16];
            for (std::size_t i = 0; i < 16; ++i)
                a[i] = loadBlocks(d8, from + (row + i) * from_stride + column, from_stride);
            interleave(a, b);
            interleave(b, a);
            interleave(a, b);
            interleave(b, a);
            for (std::size_t i = 0; i < 16; ++i)
                hn::Store(a[i], d8, to + (column + i) * to_stride + row);
        }
    }
}
#endif

// ---- Paths -----------------------------------------------------------------------------------

enum class Output { kNone, kStore, kAdd };

/// A path whose lanes are the pixels of a line.
struct Path {
    std::uint8_t* value;  ///< a line per level; those before the first and after the last hold 255
    LevelRange range;
    alignas(64) std::uint8_t least[kCell];
};

void startPath(Path& path, const LevelRange& range) {
    const std::size_t bytes = static_cast<std::size_t>(range.size()) * kCell;
    std::memset(path.value, 0, bytes);
    std::memset(path.value - kCell, 255, kCell);
    std::memset(path.value + bytes, 255, kCell);
    std::memset(path.least, 0, sizeof path.least);
    path.range = range;
}

/// Goes on with other levels: those that were not searched before count as 255.
void changeRange(Path& path, const LevelRange& range) {
    const LevelRange old = path.range;
    path.range = range;
    if (old.begin == range.begin && old.end == range.end)
        return;
    const int begin = std::max(old.begin, range.begin), end = std::min(old.end, range.end);
    if (begin < end)
        std::memmove(path.value + (begin - range.begin) * kCell,
                     path.value + (begin - old.begin) * kCell,
                     static_cast<std::size_t>(end - begin) * kCell);
    for (int k = range.begin - 1; k <= range.end; ++k)
        if (k < begin || k >= end)
            std::memset(path.value + (k - range.begin) * kCell, 255, kCell);
}

/// The dearer of two steps, by how much the grey value changes.
HWY_INLINE Vector largeStep(Vector here, Vector before) {
    const Vector change = hn::Sub(hn::Max(here, before), hn::Min(here, before));
    return hn::IfThenElse(hn::Gt(change, hn::Set(d8, kEdge - 1)), hn::Set(d8, kLargeStepAtEdge),
                          hn::Set(d8, kLargeStep));
}

/// Moves a path on by one pixel.
///
/// @param cost         a line per level, then the grey values
/// @param grey_before  of the pixels that the path comes from
template <Output kOutput>
HWY_INLINE void advance(Path& path, const std::uint8_t* cost, const std::uint8_t* grey_before,
                        std::uint8_t* sum) {
    const std::ptrdiff_t levels = path.range.size();
    const Vector small = hn::Set(d8, kSmallStep);
    for (int lane = 0; lane < kCell; lane += lanes()) {
        const Vector large =
            largeStep(hn::Load(d8, cost + levels * kCell + lane), hn::Load(d8, grey_before + lane));
        const Vector least = hn::Load(d8, path.least + lane);
        const Vector jump = hn::SaturatedAdd(least, large);
        std::uint8_t* value = path.value + lane;
        const std::uint8_t* c = cost + lane;
        std::uint8_t* s = sum + lane;
        Vector next_least = hn::Set(d8, 255), below = next_least;
        Vector here = hn::Load(d8, value);
        Vector here_stepped = hn::SaturatedAdd(here, small);
        for (std::ptrdiff_t k = 0; k < levels; ++k) {
            const Vector above = hn::Load(d8, value + kCell);
            const Vector above_stepped = hn::SaturatedAdd(above, small);
            const Vector reach = hn::Min(hn::Min(here, jump), hn::Min(below, above_stepped));
            const Vector next = hn::Add(hn::Load(d8, c), hn::Sub(reach, least));
            hn::Store(next, d8, value);
            next_least = hn::Min(next_least, next);
            if (kOutput == Output::kStore)
                hn::Store(next, d8, s);
            if (kOutput == Output::kAdd)
                hn::Store(hn::SaturatedAdd(hn::Load(d8, s), next), d8, s);
            here = above;
            below = here_stepped;
            here_stepped = above_stepped;
            value += kCell;
            c += kCell;
            s += kCell;
        }
        hn::Store(next_least, d8, path.least + lane);
    }
}

/// Costs and sums of the vertical paths of a cell, column by column.
void prepareCell(const Band& band, int cell) {
    const LevelRange range = band.ranges[cell];
    const std::size_t stride = BandMemory::pixelStride(range.size());
    const std::size_t grey = static_cast<std::size_t>(range.size()) * kCell;
    const int height = band.left.height();
    const int begin = std::max(band.y0 - kHaloRows, 0);
    const int end = std::min(band.y0 + kCell + kHaloRows, height);
    const int cell_end = std::min(band.y0 + kCell, height);
    costRows(band, cell * kCell, range, begin, end);

    const auto row = [&](int y) {
        return band.memory.rows + static_cast<std::size_t>(y - band.y0 + kHaloRows) * stride;
    };
    std::uint8_t* columns = band.memory.columns[cell % 2];
    for (int k = 0; k <= range.size(); ++k)
        transpose(row(band.y0) + k * kCell, stride, columns + k * kCell, stride);

    std::uint8_t* sums = band.memory.vertical;
    const auto sum = [&](int y) { return sums + static_cast<std::size_t>(y - band.y0) * stride; };
    Path path;
    path.value = band.memory.path;
    startPath(path, range);
    for (int y = end - 1; y >= cell_end; --y)
        advance<Output::kNone>(path, row(y), row(std::min(y + 1, end - 1)) + grey, sums);
    for (int y = cell_end - 1; y >= band.y0; --y)
        advance<Output::kStore>(path, row(y), row(std::min(y + 1, end - 1)) + grey, sum(y));
    startPath(path, range);
    for (int y = begin; y < band.y0; ++y)
        advance<Output::kNone>(path, row(y), row(std::max(y - 1, begin)) + grey, sums);
    for (int y = band.y0; y < cell_end; ++y)
        advance<Output::kAdd>(path, row(y), row(std::max(y - 1, begin)) + grey, sum(y));
    for (int k = 0; k < range.size(); ++k)
        transpose(sums + k * kCell, stride, band.memory.sums[cell % 2] + k * kCell, stride);
}

// ---- Winners ---------------------------------------------------------------------------------

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
    const std::ptrdiff_t levels = path.range.size();
    const Vector small = hn::Set(d8, kSmallStep), one = hn::Set(d8, 1), most = hn::Set(d8, 255);
    alignas(64) std::uint8_t index[kCell];
    for (int lane = 0; lane < kCell; lane += lanes()) {
        const Vector large =
            largeStep(hn::Load(d8, cost + levels * kCell + lane), hn::Load(d8, grey_before + lane));
        const Vector least = hn::Load(d8, path.least + lane);
        const Vector jump = hn::SaturatedAdd(least, large);
        std::uint8_t* value = path.value + lane;
        const std::uint8_t *c = cost + lane, *s = sum + lane;
        std::uint8_t* t = total + lane;
        Vector next_least = most, below = most, best = most, before = most, after = most;
        Vector level = hn::Zero(d8), k_now = level, last = most;
        auto last_was_best = hn::Lt(most, most);
        Vector here = hn::Load(d8, value);
        Vector here_stepped = hn::SaturatedAdd(here, small);
        for (std::ptrdiff_t k = 0; k < levels; ++k) {
            const Vector above = hn::Load(d8, value + kCell);
            const Vector above_stepped = hn::SaturatedAdd(above, small);
            const Vector reach = hn::Min(hn::Min(here, jump), hn::Min(below, above_stepped));
            const Vector next = hn::Add(hn::Load(d8, c), hn::Sub(reach, least));
            hn::Store(next, d8, value);
            next_least = hn::Min(next_least, next);
            const Vector all = hn::SaturatedAdd(hn::Load(d8, s), next);
            hn::Store(all, d8, t);
            after = hn::IfThenElse(last_was_best, all, after);
            last_was_best = hn::Lt(all, best);
            level = hn::IfThenElse(last_was_best, k_now, level);
            before = hn::IfThenElse(last_was_best, last, before);
            best = hn::Min(best, all);
            last = all;
            k_now = hn::Add(k_now, one);
            here = above;
            below = here_stepped;
            here_stepped = above_stepped;
            value += kCell;
            c += kCell;
            s += kCell;
            t += kCell;
        }
        hn::Store(next_least, d8, path.least + lane);
        // k - level + 1 is 0, 1 or 2 for the winner and its neighbours.
        const Vector two = hn::Set(d8, 2);
        Vector second = most, distance = hn::Sub(one, level);
        t = total + lane;
        for (std::ptrdiff_t k = 0; k < levels; ++k, t += kCell) {
            const Vector all = hn::Load(d8, t);
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
    const int end = std::min(kCell, band.left.height() - band.y0);
    for (int row = 0; row < end; ++row) {
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

/// Adds the horizontal paths of a cell and finds its winners; costs and vertical sums are prepared,
/// those of the next cell too.
///
/// @param grey_left  grey values of the column before the cell; moves on
void runHorizontalPaths(const Band& band, int cell, Path& from_left, std::uint8_t* grey_left) {
    const LevelRange range = band.ranges[cell];
    const std::size_t stride = BandMemory::pixelStride(range.size());
    const int x0 = cell * kCell, width = band.left.width();
    const int last = std::min(kCell, width - x0) - 1;
    const std::uint8_t* columns = band.memory.columns[cell % 2];
    const auto column = [&](int x) { return columns + static_cast<std::size_t>(x) * stride; };
    const auto grey = [&](int x) { return column(x) + range.size() * kCell; };
    const auto sum = [&](int x) {
        return band.memory.sums[cell % 2] + static_cast<std::size_t>(x) * stride;
    };

    Path path;
    path.value = band.memory.path;
    const std::uint8_t* grey_right = grey(last);
    if (x0 + kCell < width) {
        const LevelRange beyond = band.ranges[cell + 1];
        const std::size_t beyond_stride = BandMemory::pixelStride(beyond.size());
        const std::uint8_t* halo = band.memory.columns[(cell + 1) % 2];
        const int beyond_last = std::min(kHaloColumns, width - x0 - kCell) - 1;
        const auto beyond_grey = [&](int x) {
            return halo + static_cast<std::size_t>(x) * beyond_stride + beyond.size() * kCell;
        };
        startPath(path, beyond);
        for (int x = beyond_last; x >= 0; --x)
            advance<Output::kNone>(path, halo + static_cast<std::size_t>(x) * beyond_stride,
                                   beyond_grey(std::min(x + 1, beyond_last)), nullptr);
        grey_right = beyond_grey(0);
        changeRange(path, range);
    } else {
        startPath(path, range);
    }
    for (int x = last; x >= 0; --x) {
        advance<Output::kAdd>(path, column(x), grey_right, sum(x));
        grey_right = grey(x);
    }

    if (cell == 0)
        startPath(from_left, range);
    else
        changeRange(from_left, range);
    CellWinners winners;
    for (int x = 0; x <= last; ++x) {
        const std::uint8_t* grey_before = x > 0 ? grey(x - 1) : grey_left;
        LineWinners line;
        if (range.size() <= 256) {
            advanceToWinners(from_left, column(x), grey_before, sum(x), band.memory.boxed[0], line);
        } else {
            advance<Output::kAdd>(from_left, column(x), grey_before, sum(x));
            findWinners(sum(x), range.size(), line);
        }
        judgeWinners(line, x0 + x, range, band.search.min_disparity,
                     winners.column(CellWinners::kLow, x), winners.column(CellWinners::kHigh, x));
        std::memcpy(winners.column(CellWinners::kBest, x), line.best, kCell);
        std::memcpy(winners.column(CellWinners::kSecond, x), line.second, kCell);
    }
    std::memcpy(grey_left, grey(last), kCell);
    storeWinners(band, cell, winners);
}

void matchBandImpl(const EyePlanes& left, const EyePlanes& right, const Search& search, int index,
                   BandMemory& memory, Winners& winners) {
    const int cells = cellsFor(left.width());
    const Band band{left,   right,   search,       &search.ranges[std::size_t(index) * cells],
                    memory, winners, index * kCell};
    Path from_left;
    from_left.value = memory.from_left;
    alignas(64) std::uint8_t grey_left[kCell] = {};
    prepareCell(band, 0);
    for (int cell = 0; cell < cells; ++cell) {
        if (cell + 1 < cells)
            prepareCell(band, cell + 1);
        runHorizontalPaths(band, cell, from_left, grey_left);
    }
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera::sgm
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera::sgm {

HWY_EXPORT(matchBandImpl);

void matchBand(const EyePlanes& left, const EyePlanes& right, const Search& search, int band,
               BandMemory& memory, Winners& winners) {
    HWY_DYNAMIC_DISPATCH(matchBandImpl)(left, right, search, band, memory, winners);
}

void BandMemory::Free::operator()(std::uint8_t* p) const {
    std::free(p);
}

void BandMemory::reserve(int levels) {
    const std::size_t pixel = pixelStride(levels);
    const std::size_t lines = static_cast<std::size_t>(levels) * kCell;
    const std::size_t path_bytes = lines + 2 * kCell;
    constexpr std::size_t raw_bytes = std::size_t(kRawLevels) * kRawStride;
    const std::size_t bytes = raw_bytes + 3 * lines + (kCell + 2 * kHaloRows) * pixel +
                              5 * kCell * pixel + 2 * path_bytes;
    if (bytes > capacity_) {
        // Huge pages: a transposition touches a hundred places, each on a page of its own.
        constexpr std::size_t kHugePage = std::size_t(2) << 20;
        const std::size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
        void* p = std::aligned_alloc(kHugePage, rounded);
        if (!p)
            throw std::bad_alloc();
        madvise(p, rounded, MADV_HUGEPAGE);
        std::memset(p, 0, bytes);
        memory_.reset(static_cast<std::uint8_t*>(p));
        capacity_ = rounded;
    }
    std::uint8_t* next = memory_.get();
    const auto take = [&](std::size_t count) {
        std::uint8_t* p = next;
        next += count;
        return p;
    };
    raw = take(raw_bytes);
    for (auto& row : boxed) row = take(lines);
    rows = take((kCell + 2 * kHaloRows) * pixel);
    for (auto& cell : columns) cell = take(kCell * pixel);
    vertical = take(kCell * pixel);
    for (auto& cell : sums) cell = take(kCell * pixel);
    path = take(path_bytes) + kCell;
    from_left = take(path_bytes) + kCell;
}

}  // namespace kova::camera::sgm
#endif  // HWY_ONCE
