#include "camera/matching/sgm.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/sgm.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "camera/matching/sgm_costs-inl.h"
#include "camera/matching/sgm_paths-inl.h"
#include "camera/matching/sgm_vectors-inl.h"
#include "camera/matching/sgm_winners-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera::sgm {
namespace HWY_NAMESPACE {
namespace {

/// Costs and sums of the vertical paths of a cell, column by column.
void prepareCell(const Band& band, int cell) {
    const LevelRange range = band.ranges[cell];
    const std::size_t stride = BandMemory::pixelStride(range.size());
    const std::size_t grey = static_cast<std::size_t>(range.size()) * kCell;
    const int height = band.left.height();
    const int begin = std::max(band.y0 - kHaloRows, 0);
    const int end = std::min(band.y1 + kHaloRows, height), cell_end = band.y1;
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
    const Band band{left,
                    right,
                    search,
                    &search.ranges[std::size_t(index) * cells],
                    memory,
                    winners,
                    stripBegin(index, left.height()),
                    stripBegin(index + 1, left.height())};
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

}  // namespace kova::camera::sgm
#endif  // HWY_ONCE
