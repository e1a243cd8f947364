#include "camera/matching/narrow.h"

#include <algorithm>

#include "camera/base/parallel.h"

namespace kova::camera::sgm {

namespace {

/// @param y0, y1  rows of the cell in the full size
LevelRange narrowCell(const ImageView<const std::uint16_t>& half, int cell_x, int y0, int y1,
                      int margin, const Search& search) {
    const LevelRange all{0, static_cast<std::uint16_t>(search.levels)};
    constexpr int kHalfCell = kCell / 2;
    const int x_begin = std::max(cell_x * kHalfCell - kNarrowNeighbourhood, 0);
    const int x_end = std::min((cell_x + 1) * kHalfCell + kNarrowNeighbourhood, half.width);
    const int y_begin = std::max(y0 / 2 - kNarrowNeighbourhood, 0);
    const int y_end = std::min((y1 + 1) / 2 + kNarrowNeighbourhood, half.height);
    // As far right as the first disparity of a row may lie.
    const int unseen_end = (search.min_disparity + search.levels) / 2;
    int counted = 0, failed = 0, least = kInvalidDisparity, most = -1;
    for (int y = y_begin; y < y_end; ++y) {
        const std::uint16_t* row = half.row(y);
        int x = x_begin;
        if (x_begin <= unseen_end)
            x = std::clamp(static_cast<int>(std::find_if(row, row + x_end, isDisparity) - row),
                           x_begin, x_end);
        counted += x_end - x;
        for (; x < x_end; ++x) {
            if (!isDisparity(row[x])) {
                ++failed;
                continue;
            }
            least = std::min<int>(least, row[x]);
            most = std::max<int>(most, row[x]);
        }
    }
    if (most < 0 || failed * 2 > counted)
        return all;
    const int begin = 2 * least / kDisparityScale - margin - search.min_disparity;
    const int end = 2 * most / kDisparityScale + margin + 2 - search.min_disparity;
    const int begin_level = std::clamp(begin, 0, search.levels - 2 * margin);
    const int end_level = std::clamp(end, begin_level + 2 * margin, search.levels);
    return {static_cast<std::uint16_t>(begin_level), static_cast<std::uint16_t>(end_level)};
}

}  // namespace

void narrowSearch(const ImageView<const std::uint16_t>& half, int width, int height, int margin,
                  Search& search) {
    const int columns = cellsFor(width);
    parallelFor(stripsFor(height), [&](int band) {
        const int y0 = stripBegin(band, height), y1 = stripBegin(band + 1, height);
        for (int x = 0; x < columns; ++x)
            search.ranges[static_cast<std::size_t>(band) * columns + x] =
                narrowCell(half, x, y0, y1, margin, search);
    });
}

}  // namespace kova::camera::sgm
