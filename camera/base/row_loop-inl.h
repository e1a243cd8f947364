// Compiled once for every SIMD target, hence no #pragma once.
#if defined(KOVA_CAMERA_BASE_ROW_LOOP_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef KOVA_CAMERA_BASE_ROW_LOOP_INL
#undef KOVA_CAMERA_BASE_ROW_LOOP_INL
#else
#define KOVA_CAMERA_BASE_ROW_LOOP_INL
#endif

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {

/// Covers the elements [begin, end) of a row with vectors: body(d, x) stands for those from x on.
/// The last vector may overlap the one before, so that a body must not read what it writes; where
/// there are fewer elements than lanes they come one by one.
template <class D, class Body>
HWY_INLINE void coverRow(D d, int begin, int end, const Body& body) {
    const int lanes = static_cast<int>(hwy::HWY_NAMESPACE::Lanes(d));
    if (end - begin < lanes) {
        const hwy::HWY_NAMESPACE::CappedTag<hwy::HWY_NAMESPACE::TFromD<D>, 1> one;
        for (int x = begin; x < end; ++x) body(one, x);
        return;
    }
    int x = begin;
    for (; x + lanes <= end; x += lanes) body(d, x);
    if (x < end)
        body(d, end - lanes);
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#endif
