// Compiled once for every SIMD target, hence no #pragma once.
#if defined(KOVA_CAMERA_MATCHING_SGM_PATHS_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef KOVA_CAMERA_MATCHING_SGM_PATHS_INL
#undef KOVA_CAMERA_MATCHING_SGM_PATHS_INL
#else
#define KOVA_CAMERA_MATCHING_SGM_PATHS_INL
#endif

#include <algorithm>
#include <cstring>

#include "camera/matching/sgm_vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera::sgm {
namespace HWY_NAMESPACE {
namespace {

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

/// One step of a path, for a vector of its pixels: level by level, from the first one on.
class Step {
public:
    /// @param lane         the first pixel
    /// @param cost         a line per level, then the grey values
    /// @param grey_before  of the pixels that the path comes from
    HWY_INLINE Step(const Path& path, int lane, const std::uint8_t* cost,
                    const std::uint8_t* grey_before)
        : least_(hn::Load(d8, path.least + lane)),
          jump_(hn::SaturatedAdd(least_,
                                 largeStep(hn::Load(d8, cost + path.range.size() * kCell + lane),
                                           hn::Load(d8, grey_before + lane)))),
          here_(hn::Load(d8, path.value + lane)),
          here_stepped_(stepped(here_)) {}

    /// Replaces the path's value at a level and returns the new one.
    HWY_INLINE Vector advance(std::uint8_t* value, const std::uint8_t* cost) {
        const Vector above = hn::Load(d8, value + kCell), above_stepped = stepped(above);
        const Vector reach = hn::Min(hn::Min(here_, jump_), hn::Min(below_, above_stepped));
        const Vector next = hn::Add(hn::Load(d8, cost), hn::Sub(reach, least_));
        hn::Store(next, d8, value);
        next_least_ = hn::Min(next_least_, next);
        here_ = above;
        below_ = here_stepped_;
        here_stepped_ = above_stepped;
        return next;
    }

    /// Keeps the least of the new values for the next step.
    HWY_INLINE void finish(Path& path, int lane) const {
        hn::Store(next_least_, d8, path.least + lane);
    }

private:
    HWY_INLINE Vector stepped(Vector value) const {
        return hn::SaturatedAdd(value, hn::Set(d8, kSmallStep));
    }

    const Vector least_, jump_;
    Vector here_, here_stepped_;
    Vector below_ = hn::Set(d8, 255), next_least_ = below_;
};

/// Moves a path on by one pixel, see Step.
///
/// @param sum  a line per level
template <Output kOutput>
HWY_INLINE void advance(Path& path, const std::uint8_t* cost, const std::uint8_t* grey_before,
                        std::uint8_t* sum) {
    const std::ptrdiff_t end = static_cast<std::ptrdiff_t>(path.range.size()) * kCell;
    for (int lane = 0; lane < kCell; lane += lanes()) {
        Step step(path, lane, cost, grey_before);
        for (std::ptrdiff_t i = lane; i < end; i += kCell) {
            const Vector next = step.advance(path.value + i, cost + i);
            if (kOutput == Output::kStore)
                hn::Store(next, d8, sum + i);
            if (kOutput == Output::kAdd)
                hn::Store(hn::SaturatedAdd(hn::Load(d8, sum + i), next), d8, sum + i);
        }
        step.finish(path, lane);
    }
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera::sgm
HWY_AFTER_NAMESPACE();

#endif
