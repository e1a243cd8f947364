#include "camera/matching/speckles.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "camera/base/parallel.h"
#include "camera/matching/strips.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/speckles.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "camera/base/row_loop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

constexpr std::uint16_t kFirstOfRun = 1, kLastOfRun = 2;

/// Tells for each pixel whether it is the first and the last one of a run.
///
/// @param row  readable from -1 to `width`
void markRuns(const std::uint16_t* row, int width, int max_step, std::uint8_t* marks) {
    coverRow(hn::CappedTag<std::uint16_t, 32>(), 0, width, [&](auto d, int x) HWY_ATTR {
        const auto here = hn::LoadU(d, row + x);
        const auto highest = hn::Set(d, kFirstReservedDisparity - 1);
        const auto apart = [&](const std::uint16_t* other) HWY_ATTR {
            const auto there = hn::LoadU(d, other);
            const auto change = hn::Sub(hn::Max(here, there), hn::Min(here, there));
            return hn::Or(hn::Gt(change, hn::Set(d, static_cast<std::uint16_t>(max_step))),
                          hn::Gt(there, highest));
        };
        const auto first = hn::IfThenElseZero(apart(row + x - 1), hn::Set(d, kFirstOfRun));
        const auto last = hn::IfThenElseZero(apart(row + x + 1), hn::Set(d, kLastOfRun));
        const auto mark = hn::IfThenZeroElse(hn::Gt(here, highest), hn::Or(first, last));
        hn::StoreU(hn::TruncateTo(hn::Rebind<std::uint8_t, decltype(d)>(), mark),
                   hn::Rebind<std::uint8_t, decltype(d)>(), marks + x);
    });
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(markRuns);

void SpeckleFilter::begin(int width, int height) {
    const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    if (pixels > capacity_) {
        runs_.reset(new Run[pixels]);
        capacity_ = pixels;
    }
    if (first_run_.size() < static_cast<std::size_t>(height)) {
        first_run_.resize(static_cast<std::size_t>(height));
        end_run_.resize(static_cast<std::size_t>(height));
    }
}

std::uint32_t SpeckleFilter::rootOf(std::uint32_t run) const {
    while (runs_[run].parent != run) run = runs_[run].parent;
    return run;
}

void SpeckleFilter::join(std::uint32_t a, std::uint32_t b) {
    a = rootOf(a);
    b = rootOf(b);
    if (a == b)
        return;
    if (a > b)
        std::swap(a, b);
    runs_[b].parent = a;
    runs_[a].pixels += runs_[b].pixels;
}

void SpeckleFilter::joinRows(const ImageView<std::uint16_t>& disparity, int y, int max_step) {
    const std::uint16_t* above = disparity.row(y - 1);
    const std::uint16_t* row = disparity.row(y);
    std::uint32_t a = first_run_[static_cast<std::size_t>(y) - 1];
    std::uint32_t b = first_run_[static_cast<std::size_t>(y)];
    const std::uint32_t a_end = end_run_[static_cast<std::size_t>(y) - 1];
    const std::uint32_t b_end = end_run_[static_cast<std::size_t>(y)];
    while (a < a_end && b < b_end) {
        const int begin = std::max(runs_[a].begin, runs_[b].begin);
        const int end = std::min(runs_[a].end, runs_[b].end);
        for (int x = begin; x < end; ++x) {
            if (std::abs(row[x] - above[x]) <= max_step) {
                join(a, b);
                break;
            }
        }
        if (runs_[a].end < runs_[b].end)
            ++a;
        else
            ++b;
    }
}

void SpeckleFilter::label(const ImageView<std::uint16_t>& disparity, int strip, int max_step) {
    const int y_begin = stripBegin(strip, disparity.height),
              y_end = stripBegin(strip + 1, disparity.height);
    auto next = static_cast<std::uint32_t>(y_begin * disparity.width);
    for (int y = y_begin; y < y_end; ++y) {
        first_run_[static_cast<std::size_t>(y)] = next;
        next = findRuns(disparity.row(y), disparity.width, max_step, next);
        end_run_[static_cast<std::size_t>(y)] = next;
        if (y > y_begin)
            joinRows(disparity, y, max_step);
    }
}

/// @param next  number of the row's first run
/// @return the number behind its last one
std::uint32_t SpeckleFilter::findRuns(const std::uint16_t* row, int width, int max_step,
                                      std::uint32_t next) {
    using HWY_NAMESPACE::kFirstOfRun;
    using HWY_NAMESPACE::kLastOfRun;
    constexpr int kChunk = 512, kAtOnce = 8;
    std::uint16_t part[kChunk + 2];  // with a pixel before and behind
    std::uint8_t marks[kChunk] = {};
    for (int begin = 0; begin < width; begin += kChunk) {
        const int count = std::min(kChunk, width - begin);
        part[0] = begin > 0 ? row[begin - 1] : kInvalidDisparity;
        std::copy(row + begin, row + begin + count, part + 1);
        part[count + 1] = begin + count < width ? row[begin + count] : kInvalidDisparity;
        HWY_DYNAMIC_DISPATCH(markRuns)(part + 1, count, max_step, marks);
        std::fill(marks + count, marks + (count + kAtOnce - 1) / kAtOnce * kAtOnce, 0);
        for (int i = 0; i < count; i += kAtOnce) {
            std::uint64_t eight;
            std::memcpy(&eight, marks + i, sizeof eight);
            if (eight == 0)
                continue;
            for (int k = i; k < i + kAtOnce; ++k) {
                const int x = begin + k;
                if (marks[k] & kFirstOfRun)
                    runs_[next].begin = static_cast<std::uint16_t>(x);
                if (marks[k] & kLastOfRun) {
                    Run& run = runs_[next];
                    run.end = static_cast<std::uint16_t>(x + 1);
                    run.parent = next++;
                    run.pixels = static_cast<std::uint32_t>(run.end - run.begin);
                }
            }
        }
    }
    return next;
}

void SpeckleFilter::joinStrips(const ImageView<std::uint16_t>& disparity, int max_step) {
    for (int strip = 1; strip < stripsFor(disparity.height); ++strip)
        joinRows(disparity, stripBegin(strip, disparity.height), max_step);
}

void SpeckleFilter::remove(const ImageView<std::uint16_t>& disparity, int strip,
                           int max_pixels) const {
    const int y_end = stripBegin(strip + 1, disparity.height);
    for (int y = stripBegin(strip, disparity.height); y < y_end; ++y) {
        const auto row = static_cast<std::size_t>(y);
        for (std::uint32_t run = first_run_[row]; run < end_run_[row]; ++run)
            if (runs_[rootOf(run)].pixels <= static_cast<std::uint32_t>(max_pixels))
                std::fill(disparity.row(y) + runs_[run].begin, disparity.row(y) + runs_[run].end,
                          kInvalidDisparity);
    }
}

void SpeckleFilter::filter(const ImageView<std::uint16_t>& disparity, int max_pixels,
                           int max_step) {
    if (disparity.empty())
        return;
    begin(disparity.width, disparity.height);
    parallelFor(stripsFor(disparity.height), [&](int strip) { label(disparity, strip, max_step); });
    joinStrips(disparity, max_step);
    parallelFor(stripsFor(disparity.height),
                [&](int strip) { remove(disparity, strip, max_pixels); });
}

}  // namespace kova::camera
#endif  // HWY_ONCE
