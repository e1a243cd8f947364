#include "camera/detection/cell_grid.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "camera/base/parallel.h"

namespace kova::camera {

namespace {

/// Part of a cell that must have depth.
constexpr float kMinFilled = 0.3f;
/// A spread of this much within a cell means two surfaces [1/16 px].
constexpr int kSplitSpread = 2 * kDisparityScale;
/// Part of the measured pixels from which on the nearer of two surfaces counts.
constexpr float kNearerPart = 0.3f;
constexpr int kMaxCellPixels = 512;
/// Mean change over 4 px that a cell needs [grey levels]: less is noise alone in any camera.
constexpr float kMinChange = 1.2f;

/// Mean of the surface that counts in a cell that straddles two; `count` becomes its size.
float splitMean(std::uint16_t* values, int& count) {
    std::sort(values, values + count);
    int cut = 0;
    int widest = 0;
    const int first = count / 8;  // a few outliers at either end are no surface
    for (int i = std::max(1, first); i < count - first; ++i) {
        if (values[i] - values[i - 1] > widest) {
            widest = values[i] - values[i - 1];
            cut = i;
        }
    }
    int begin = 0;
    int end = count;
    if (widest > kDisparityScale) {
        const int nearer = count - cut;
        if (static_cast<float>(nearer) >= kNearerPart * static_cast<float>(count))
            begin = cut;
        else
            end = cut;
    }
    // Mean of the middle half.
    const int trim = (end - begin) / 4;
    int sum = 0;
    for (int i = begin + trim; i < end - trim; ++i) sum += values[i];
    const float mean = static_cast<float>(sum) / static_cast<float>(end - begin - 2 * trim);
    count = end - begin;
    return mean;
}

}  // namespace

void CellGrid::resize(int width, int height, int column_px, int bin_px) {
    width_ = width;
    height_ = height;
    column_px_ = column_px;
    bin_px_ = bin_px;
    columns_ = (width + column_px - 1) / column_px;
    bins_ = (height + bin_px - 1) / bin_px;
    // A sliver at the right edge joins its neighbour.
    if (columns_ > 1 && width - (columns_ - 1) * column_px < column_px / 2 + 1)
        --columns_;
    const std::size_t cells = static_cast<std::size_t>(columns_) * bins_;
    kind.resize(cells);
    disparity.resize(cells);
    weight.resize(cells);
    confidence.resize(cells);
    fine.resize(cells);
    coarse.resize(cells);
}

void CellGrid::reduce(const ImageView<const std::uint8_t>& left, const DisparityMap& map,
                      double offset, int crop_top, int crop_bottom) {
    constexpr int kBinsPerTask = 8;
    const int tasks = (bins_ + kBinsPerTask - 1) / kBinsPerTask;
    parallelFor(tasks, [&](int task) {
        for (int bin = task * kBinsPerTask; bin < std::min(bins_, (task + 1) * kBinsPerTask);
             ++bin) {
            const int y_begin = std::max(bin * bin_px_, crop_top);
            const int y_end = std::min(binEnd(bin), height_ - crop_bottom);
            for (int column = 0; column < columns_; ++column)
                reduceCell(left, map, offset, column, y_begin, y_end, index(column, bin));
        }
    });
}

bool CellGrid::textured(const ImageView<const std::uint8_t>& left, int x_begin, int x_end,
                        int y_begin, int y_end, std::size_t cell) {
    int change1 = 0;
    int change4 = 0;
    const int last = std::min(x_end, left.width - 4);
    for (int y = y_begin; y < y_end; y += 2) {
        const std::uint8_t* grey = left.row(y);
        for (int x = x_begin; x < last; ++x) {
            change1 += std::abs(grey[x + 1] - grey[x]);
            change4 += std::abs(grey[x + 4] - grey[x]);
        }
    }
    const int samples = std::max(0, last - x_begin) * ((y_end - y_begin + 1) / 2);
    if (samples == 0)
        return true;
    fine[cell] = static_cast<float>(change1) / static_cast<float>(samples);
    coarse[cell] = static_cast<float>(change4) / static_cast<float>(samples);
    return coarse[cell] >= kMinChange;
}

void CellGrid::reduceCell(const ImageView<const std::uint8_t>& left, const DisparityMap& map,
                          double offset, int column, int y_begin, int y_end, std::size_t cell) {
    kind[cell] = CellKind::kEmpty;
    disparity[cell] = 0;
    weight[cell] = 0;
    confidence[cell] = 0;
    fine[cell] = coarse[cell] = 0;
    const int x_begin = columnBegin(column);
    const int x_end = columnEnd(column);
    const int pixels = std::max(0, y_end - y_begin) * (x_end - x_begin);
    if (pixels == 0)
        return;

    if (!textured(left, x_begin, x_end, y_begin, y_end, cell))
        return;
    std::uint16_t values[kMaxCellPixels];
    int count = 0;
    int too_near = 0;
    int sum = 0;
    int confidence_sum = 0;
    std::uint16_t low = 0xFFFF;
    std::uint16_t high = 0;
    for (int y = y_begin; y < y_end; ++y) {
        const std::uint16_t* d = map.disparity.row(y);
        const std::uint8_t* sure = map.confidence.row(y);
        for (int x = x_begin; x < x_end && count < kMaxCellPixels; ++x) {
            if (!isDisparity(d[x])) {
                too_near += d[x] == kTooNearDisparity;
                continue;
            }
            if (sure[x] == 0 || sure[x] == kFilledConfidence)
                continue;
            values[count++] = d[x];
            sum += d[x];
            confidence_sum += sure[x];
            low = std::min(low, d[x]);
            high = std::max(high, d[x]);
        }
    }
    if (too_near * 2 > pixels) {
        kind[cell] = CellKind::kTooNear;
        weight[cell] = static_cast<float>(too_near) / kPixelsPerSample;
        confidence[cell] = 0.9f;
        return;
    }
    if (static_cast<float>(count) < kMinFilled * static_cast<float>(pixels))
        return;
    const float mean_confidence = static_cast<float>(confidence_sum) / static_cast<float>(count) /
                                  static_cast<float>(kConfidenceScale);
    float mean = static_cast<float>(sum) / static_cast<float>(count);
    if (high - low > kSplitSpread)
        mean = splitMean(values, count);
    kind[cell] = CellKind::kMeasured;
    disparity[cell] = mean / static_cast<float>(kDisparityScale) + static_cast<float>(offset);
    weight[cell] = static_cast<float>(count) / kPixelsPerSample;
    confidence[cell] = std::clamp(mean_confidence, 0.02f, 0.98f);
}

}  // namespace kova::camera
