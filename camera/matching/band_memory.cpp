#include "camera/matching/band_memory.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "camera/matching/sgm_definition.h"

namespace kova::camera::sgm {

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
