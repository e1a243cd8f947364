#pragma once

#include <cstdint>
#include <vector>

#include "camera/base/disparity.h"
#include "camera/base/scratch_pool.h"
#include "camera/calibration/stereo_calibration.h"
#include "camera/detection/cell_kernel.h"
#include "camera/detection/compared_pictures.h"

namespace kova::camera {

/// The matcher's support makes neighbouring errors alike: this many pixels are worth one
/// independent measurement (a 5x12 block is worth two).
constexpr float kPixelsPerSample = 30;

/// What one cell of the grid holds.
enum class CellKind : std::uint8_t { kEmpty, kMeasured, kTooNear };

/// The disparity map, reduced to cells of one stixel's width and a few rows: a robust mean per
/// cell. Where a cell straddles two surfaces, the nearer one counts if it fills a good part of it,
/// so that posts thinner than a cell are not lost. Filled depth is left out.
class CellGrid {
public:
    /// Changes the shape; allocates only when it grows.
    void resize(int width, int height, int column_px, int bin_px);

    /// Fills the grid. Cells without texture in the picture are empty: what a matcher says there
    /// it has carried over from elsewhere.
    /// @param left                   rectified, grey
    /// @param compared               the same picture as it is compared with the right one
    /// @param offset                added to every disparity, see RectifiedGeometry
    /// @param crop_top, crop_bottom  rows left out at the edges [px]
    void reduce(const ImageView<const std::uint8_t>& left, const ComparedPictures& compared,
                const DisparityMap& map, double offset, int crop_top, int crop_bottom);

    int columns() const { return columns_; }
    int bins() const { return bins_; }
    int columnPx() const { return column_px_; }
    int binPx() const { return bin_px_; }
    std::size_t index(int column, int bin) const {
        return static_cast<std::size_t>(column) * bins_ + bin;
    }
    int columnBegin(int column) const { return column * column_px_; }
    int columnEnd(int column) const {
        return column + 1 == columns_ ? width_ : (column + 1) * column_px_;
    }
    float centreX(int column) const {
        return 0.5f * static_cast<float>(columnBegin(column) + columnEnd(column) - 1);
    }
    int binEnd(int bin) const { return bin + 1 == bins_ ? height_ : (bin + 1) * bin_px_; }
    float centreY(int bin) const {
        return 0.5f * static_cast<float>(bin * bin_px_ + binEnd(bin) - 1);
    }

    // Per cell, at index(column, bin): the bins of a column lie together, the top one first.
    std::vector<CellKind> kind;
    std::vector<float> disparity;   ///< depth disparity [px]
    std::vector<float> weight;      ///< independent measurements that the cell is worth
    std::vector<float> confidence;  ///< probability that its disparity is right, 0..1
    /// Mean change of the picture over 1 px, and of the compared one over 4 px [grey levels]: what
    /// noise is left of the former in the compared picture, so that noise alone makes both alike.
    std::vector<float> fine, coarse;

private:
    void reduceCell(const CellRows& rows, const CellColumns& columns, double offset, int column,
                    std::size_t cell);

    ScratchPool<CellColumns> scratch_;
    float noise_left_ = 1;  ///< see ComparedPictures
    int width_ = 0, height_ = 0, column_px_ = 1, bin_px_ = 1, columns_ = 0, bins_ = 0;
};

}  // namespace kova::camera
