#include "camera/detection/cell_grid.h"

#include <algorithm>
#include <cmath>

#include "camera/base/check.h"
#include "camera/base/parallel.h"

namespace kova::camera {

namespace {

/// Part of a cell that must have depth.
constexpr float kMinFilled = 0.3f;
/// A spread of this much within a cell means two surfaces [1/16 px].
constexpr int kSplitSpread = 2 * kDisparityScale;
/// Part of the measured pixels from which on the nearer of two surfaces counts.
constexpr float kNearerPart = 0.3f;
constexpr int kMaxCellPixels = 2 * 128 * kMostCellRows;
/// Mean change over 4 px that a cell needs [grey levels]: less is noise alone in any camera.
constexpr float kMinChange = 1.2f;

/// Mean of the surface that counts in a cell that straddles two; `count` becomes its size.
float splitMean(const CellRows& rows, int x_begin, int x_end, int& count) {
    std::uint16_t values[kMaxCellPixels];
    count = 0;
    for (int i = 0; i < rows.count; ++i) {
        const std::uint16_t* d = rows.disparity[i];
        const std::uint8_t* sure = rows.confidence[i];
        for (int x = x_begin; x < x_end; ++x)
            if (isDisparity(d[x]) && sure[x] != 0 && sure[x] != kFilledConfidence)
                values[count++] = d[x];
    }
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
    KOVA_DCHECK(column_px <= 128 && bin_px <= kMostCellRows);
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
        static thread_local CellColumns columns;
        columns.resize(width_);
        for (int bin = task * kBinsPerTask; bin < std::min(bins_, (task + 1) * kBinsPerTask);
             ++bin) {
            const int y_begin = std::max(bin * bin_px_, crop_top);
            const int y_end = std::min(binEnd(bin), height_ - crop_bottom);
            CellRows rows;
            rows.width = width_;
            for (int y = y_begin; y < y_end; ++y) {
                rows.disparity[rows.count] = map.disparity.row(y);
                rows.confidence[rows.count] = map.confidence.row(y);
                rows.grey[rows.count++] = left.row(y);
            }
            sumCellColumns(rows, columns);
            for (int column = 0; column < columns_; ++column)
                reduceCell(rows, columns, offset, column, index(column, bin));
        }
    });
}

void CellGrid::reduceCell(const CellRows& rows, const CellColumns& columns, double offset,
                          int column, std::size_t cell) {
    kind[cell] = CellKind::kEmpty;
    disparity[cell] = 0;
    weight[cell] = 0;
    confidence[cell] = 0;
    fine[cell] = coarse[cell] = 0;
    const int x_begin = columnBegin(column);
    const int x_end = columnEnd(column);
    const int pixels = rows.count * (x_end - x_begin);
    if (pixels == 0)
        return;

    int change1 = 0, change4 = 0;
    int count = 0, too_near = 0, sum = 0, sure = 0;
    std::uint16_t low = 0xFFFF, high = 0;
    for (int x = x_begin; x < x_end; ++x) {
        change1 += columns.change1[x];
        change4 += columns.change4[x];
        count += columns.count[x];
        too_near += columns.too_near[x];
        sum += columns.sum[x];
        sure += columns.sure[x];
        low = std::min(low, columns.low[x]);
        high = std::max(high, columns.high[x]);
    }
    const int samples =
        std::max(0, std::min(x_end, rows.width - 4) - x_begin) * ((rows.count + 1) / 2);
    if (samples > 0) {
        fine[cell] = static_cast<float>(change1) / static_cast<float>(samples);
        coarse[cell] = static_cast<float>(change4) / static_cast<float>(samples);
        if (coarse[cell] < kMinChange)
            return;
    }
    if (too_near * 2 > pixels) {
        kind[cell] = CellKind::kTooNear;
        weight[cell] = static_cast<float>(too_near) / kPixelsPerSample;
        confidence[cell] = 0.9f;
        return;
    }
    if (static_cast<float>(count) < kMinFilled * static_cast<float>(pixels))
        return;
    const float mean_confidence =
        static_cast<float>(sure) / static_cast<float>(count) / static_cast<float>(kConfidenceScale);
    float mean = static_cast<float>(sum) / static_cast<float>(count);
    if (high - low > kSplitSpread)
        mean = splitMean(rows, x_begin, x_end, count);
    kind[cell] = CellKind::kMeasured;
    disparity[cell] = mean / static_cast<float>(kDisparityScale) + static_cast<float>(offset);
    weight[cell] = static_cast<float>(count) / kPixelsPerSample;
    confidence[cell] = std::clamp(mean_confidence, 0.02f, 0.98f);
}

}  // namespace kova::camera
