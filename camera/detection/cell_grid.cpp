#include "camera/detection/cell_grid.h"

#include <algorithm>
#include <array>

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
/// Mean change over 4 px that a cell needs [grey levels]: less is noise alone in any camera.
constexpr float kMinChange = 1.2f;

/// The measured disparities of a cell, sorted coarsely: only what lies between two buckets can be
/// the gap between two surfaces.
struct Buckets {
    static constexpr int kCount = 32;
    struct Bucket {
        int count = 0, sum = 0;
        int low = 0xFFFF, high = 0;
    };
    std::array<Bucket, kCount> bucket;

    Buckets(const CellRows& rows, int x_begin, int x_end, int low, int high) {
        const unsigned scale = (kCount << 16) / static_cast<unsigned>(high - low + 1);
        for (int i = 0; i < rows.count; ++i) {
            const std::uint16_t* d = rows.disparity[i];
            const std::uint8_t* sure = rows.confidence[i];
            for (int x = x_begin; x < x_end; ++x) {
                if (!isDisparity(d[x]) || sure[x] == 0 || sure[x] == kFilledConfidence)
                    continue;
                Bucket& in = bucket[(static_cast<unsigned>(d[x] - low) * scale) >> 16];
                ++in.count;
                in.sum += d[x];
                in.low = std::min<int>(in.low, d[x]);
                in.high = std::max<int>(in.high, d[x]);
            }
        }
    }

    /// How many disparities lie below the widest gap among those from `first` to `last`, counted
    /// from the least; 0 when no gap is wider than `least`.
    int cut(int first, int last, int least) const {
        int widest = least, at = 0, below = 0, end = -1;
        for (const Bucket& b : bucket) {
            if (b.count == 0)
                continue;
            if (end >= 0 && below >= first && below < last && b.low - end > widest) {
                widest = b.low - end;
                at = below;
            }
            below += b.count;
            end = b.high;
        }
        return at;
    }

    /// Mean of those from `begin` to `end`, counted from the least; of a bucket at either end a
    /// part.
    float mean(int begin, int end) const {
        float sum = 0;
        int below = 0;
        for (const Bucket& b : bucket) {
            const int part = std::min(end, below + b.count) - std::max(begin, below);
            if (part > 0)
                sum += static_cast<float>(b.sum) * static_cast<float>(part) /
                       static_cast<float>(b.count);
            below += b.count;
        }
        return sum / static_cast<float>(end - begin);
    }
};

/// Mean of the surface that counts in a cell that straddles two; `count` becomes its size.
float splitMean(const Buckets& buckets, int& count) {
    const int ends = count / 8;  // a few outliers at either end are no surface
    const int cut = buckets.cut(std::max(1, ends), count - ends, kDisparityScale);
    int begin = 0;
    int end = count;
    if (cut > 0) {
        const bool nearer =
            static_cast<float>(count - cut) >= kNearerPart * static_cast<float>(count);
        (nearer ? begin : end) = cut;
    }
    count = end - begin;
    const int trim = count / 4;  // the mean of the middle half
    return buckets.mean(begin + trim, end - trim);
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

void CellGrid::reduce(const ImageView<const std::uint8_t>& left, const ComparedPictures& compared,
                      const DisparityMap& map, double offset, int crop_top, int crop_bottom) {
    constexpr int kBinsPerTask = 8;
    const int tasks = (bins_ + kBinsPerTask - 1) / kBinsPerTask;
    scratch_.reserve([&](CellColumns& columns) { columns.resize(width_); });
    noise_left_ = compared.noiseLeft();
    parallelFor(tasks, [&](int task) {
        const auto loan = scratch_.take();
        CellColumns& columns = *loan;
        for (int bin = task * kBinsPerTask; bin < std::min(bins_, (task + 1) * kBinsPerTask);
             ++bin) {
            const int y_begin = std::max(bin * bin_px_, crop_top);
            const int y_end = std::min(binEnd(bin), height_ - crop_bottom);
            CellRows rows;
            rows.width = width_;
            for (int y = y_begin; y < y_end; ++y) {
                rows.disparity[rows.count] = map.disparity.row(y);
                rows.confidence[rows.count] = map.confidence.row(y);
                rows.grey[rows.count] = left.row(y);
                rows.compared[rows.count++] = compared.left().row(y);
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
        fine[cell] = noise_left_ * static_cast<float>(change1) / static_cast<float>(samples);
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
        mean = splitMean(Buckets(rows, x_begin, x_end, low, high), count);
    kind[cell] = CellKind::kMeasured;
    disparity[cell] = mean / static_cast<float>(kDisparityScale) + static_cast<float>(offset);
    weight[cell] = static_cast<float>(count) / kPixelsPerSample;
    confidence[cell] = std::clamp(mean_confidence, 0.02f, 0.98f);
}

}  // namespace kova::camera
