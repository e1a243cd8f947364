#include "camera/matching/speckles.h"

#include <algorithm>
#include <cstdlib>

#include "camera/base/parallel.h"
#include "camera/matching/strips.h"

namespace kova::camera {

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
        const std::uint16_t* row = disparity.row(y);
        first_run_[static_cast<std::size_t>(y)] = next;
        int x = 0;
        while (x < disparity.width) {
            if (!isDisparity(row[x])) {
                ++x;
                continue;
            }
            const int begin = x++;
            while (x < disparity.width && isDisparity(row[x]) &&
                   std::abs(row[x] - row[x - 1]) <= max_step)
                ++x;
            runs_[next] = {static_cast<std::uint16_t>(begin), static_cast<std::uint16_t>(x), next,
                           static_cast<std::uint32_t>(x - begin)};
            ++next;
        }
        end_run_[static_cast<std::size_t>(y)] = next;
        if (y > y_begin)
            joinRows(disparity, y, max_step);
    }
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
