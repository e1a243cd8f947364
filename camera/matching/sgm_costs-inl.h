// Compiled once for every SIMD target, hence no #pragma once.
#if defined(KOVA_CAMERA_MATCHING_SGM_COSTS_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef KOVA_CAMERA_MATCHING_SGM_COSTS_INL
#undef KOVA_CAMERA_MATCHING_SGM_COSTS_INL
#else
#define KOVA_CAMERA_MATCHING_SGM_COSTS_INL
#endif

#include <algorithm>
#include <cstring>

#include "camera/matching/sgm_vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera::sgm {
namespace HWY_NAMESPACE {
namespace {

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
    alignas(64) std::uint8_t tail[2 * kRawLevels];  // both pixels of a level side by side
    // Levels go against the columns: the first one is the last lane.
    const int column = x0 - 1 + kCell, partner = column - first - (kRawLevels - 1);
    const CensusRow l0(band.left, column, y), l1(band.left, column + 1, y);
    const CensusRow r0(band.right, partner, y), r1(band.right, partner + 1, y);
    for (int k = (kRawLevels - count) / lanes() * lanes(); k < kRawLevels; k += lanes())
        hn::StoreInterleaved2(hammingOfPixel(l0, r0, k), hammingOfPixel(l1, r1, k), d8,
                              tail + 2 * k);
    std::uint8_t* out = raw + kCell;
    for (int k = 0; k < count; ++k, out += kRawStride)
        std::memcpy(out, tail + 2 * (kRawLevels - 1 - k), 2);
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

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera::sgm
HWY_AFTER_NAMESPACE();

#endif
