// Compiled once for every SIMD target, hence no #pragma once.
#if defined(KOVA_CAMERA_MATCHING_SGM_VECTORS_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef KOVA_CAMERA_MATCHING_SGM_VECTORS_INL
#undef KOVA_CAMERA_MATCHING_SGM_VECTORS_INL
#else
#define KOVA_CAMERA_MATCHING_SGM_VECTORS_INL
#endif

#include "camera/matching/sgm.h"

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
    int y0, y1;  ///< its rows
};

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

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera::sgm
HWY_AFTER_NAMESPACE();

#endif
