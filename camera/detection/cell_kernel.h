#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace kova::camera {

/// Most rows of a cell: the sums fit 16 bits.
constexpr int kMostCellRows = 8;

/// The rows of a row of cells.
struct CellRows {
    int width = 0, count = 0;
    std::array<const std::uint16_t*, kMostCellRows> disparity{};
    std::array<const std::uint8_t*, kMostCellRows> confidence{};
    std::array<const std::uint8_t*, kMostCellRows> grey{};
    std::array<const std::uint8_t*, kMostCellRows> compared{};  ///< see ComparedPictures
};

/// What each pixel column of a row of cells adds to its cell.
struct CellColumns {
    std::vector<std::uint16_t> count;     ///< measured pixels
    std::vector<std::uint16_t> too_near;  ///< pixels nearer than the search can see
    std::vector<std::uint16_t> sum;       ///< of the measured disparities [1/16 px]
    std::vector<std::uint16_t> sure;      ///< of their confidences
    std::vector<std::uint16_t> low;       ///< least measured disparity; 0xFFFF without any
    std::vector<std::uint16_t> high;      ///< largest; 0 without any
    /// Change of the picture over 1 px, and of the compared one over 4 px, in every second row
    /// [grey levels]; the last 4 columns have none.
    std::vector<std::uint16_t> change1, change4;

    void resize(int width);
};

/// Adds up the pixels of every column; disparities must be below 512 px. The same bits on every
/// CPU.
void sumCellColumns(const CellRows& rows, CellColumns& columns);

/// The plain form, the truth for tests.
void sumCellColumnsReference(const CellRows& rows, CellColumns& columns);

}  // namespace kova::camera
