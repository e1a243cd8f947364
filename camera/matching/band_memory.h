#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "camera/matching/sgm_definition.h"

namespace kova::camera::sgm {

/// Working memory of one band; grows to what was asked for and stays.
class BandMemory {
public:
    /// @param levels  of the search
    void reserve(int levels);

    /// Bytes from one pixel of a cell to the next, for a range of `levels`: one line of kCell bytes
    /// per level, one for the grey values, and an odd number of lines, so that the caches' sets are
    /// used evenly.
    static std::size_t pixelStride(int levels) {
        return static_cast<std::size_t>((levels + 1) | 1) * kCell;
    }

    std::uint8_t* raw = nullptr;        ///< Hamming distances of a row, kRawLevels at a time
    std::uint8_t* boxed[3] = {};        ///< the last three rows, summed over three columns
    std::uint8_t* rows = nullptr;       ///< costs of a cell and its halo, row by row
    std::uint8_t* columns[2] = {};      ///< costs of the last two cells, column by column
    std::uint8_t* vertical = nullptr;   ///< sums of a cell's vertical paths, row by row
    std::uint8_t* sums[2] = {};         ///< of the last two cells, column by column
    std::uint8_t* path = nullptr;       ///< a path's values, from level 0; level -1 may be written
    std::uint8_t* from_left = nullptr;  ///< likewise

    static constexpr int kRawLevels = 64;         ///< so that they stay in the first cache
    static constexpr int kRawStride = 2 * kCell;  ///< bytes from one of them to the next

private:
    struct Free {
        void operator()(std::uint8_t* p) const;
    };
    std::unique_ptr<std::uint8_t, Free> memory_;
    std::size_t capacity_ = 0;
};

}  // namespace kova::camera::sgm
