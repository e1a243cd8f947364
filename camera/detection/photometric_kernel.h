#pragma once

#include <cstdint>

namespace kova::camera {

/// So many bytes past the end of their rows may be read by patchSums().
constexpr int kPatchOverread = 8;

/// Pixels of a row of the left picture and those of the right one that belong to them; one more of
/// the right one is read.
struct PatchRow {
    const std::uint8_t* left = nullptr;
    const std::uint8_t* right = nullptr;
    int pixels = 0;
    int part =
        0;  ///< 0..15: a pixel of the right picture lies this much towards the next [1/16 px]
};

/// Sums over pixels p of the left and q of the right picture, in 1/16 grey levels.
struct PatchSums {
    std::int64_t n = 0, p = 0, q = 0, pp = 0, qq = 0, pq = 0;

    void add(const PatchSums& other) {
        n += other.n, p += other.p, q += other.q;
        pp += other.pp, qq += other.qq, pq += other.pq;
    }
};

/// The right picture is interpolated linearly. The same bits on every CPU.
PatchSums patchSums(const PatchRow* rows, int count);

/// The plain form, the truth for tests.
PatchSums patchSumsReference(const PatchRow* rows, int count);

}  // namespace kova::camera
