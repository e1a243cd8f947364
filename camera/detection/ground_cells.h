#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "camera/detection/cell_grid.h"
#include "camera/detection/ground_kernel.h"
#include "camera/detection/ground_model.h"

namespace kova::camera {

/// The cells of a grid as the ground is fitted to them: column by column, one list per measure,
/// whole groups of kGroundGroup cells, so that they are handled many at a time. A cell that is not
/// measured weighs nothing.
class GroundCells {
public:
    /// Takes the cells of a grid.
    void collect(const CellGrid& grid);

    /// Finds worth() against this ground.
    void findShadowed(const CellGrid& grid, const GroundModel& model);

    int columns() const { return columns_; }
    int bins() const { return bins_; }
    int columnPx() const { return column_px_; }
    int binPx() const { return bin_px_; }
    /// Bins up and down over which a gradient is taken where both are measured.
    int gradientReach() const { return std::max(1, kGradientPx / bin_px_); }
    /// Bins of a column, rounded up to whole groups; those too many weigh nothing.
    int paddedBins() const { return stride_ - 2 * kMargin; }

    float u(int column) const { return u_[column]; }
    const float* v() const { return v_.data() + kMargin; }
    const float* disparity(int column) const { return at(disparity_, column); }
    /// Of the disparity down the column [px/px]; 0 where no neighbour is measured.
    const float* gradient(int column) const { return at(gradient_, column); }
    /// Independent measurements that a cell is worth, by its confidence.
    const float* weight(int column) const { return at(weight_, column); }
    /// The same, less in cells within the matcher's reach of something nearer, which are measured
    /// too near, and nothing at the picture's lower edge, where they are measured too far.
    const float* worth(int column) const { return at(worth_, column); }

    /// The cells of a column from a bin on, with their weights or their worth.
    GroundColumn below(int first, int column, bool worth) const {
        return {v() + first, disparity(column) + first, gradient(column) + first,
                (worth ? this->worth(column) : weight(column)) + first, paddedBins() - first};
    }

    /// Bins of the measured cells of a column, from the top.
    const std::uint16_t* measured(int column) const { return measured_.data() + column * bins_; }
    int measuredCount(int column) const { return measured_count_[column]; }

    /// The first bin of a column, at the start of a group, in which a plane may reach this
    /// disparity.
    int firstBin(int column, const GroundModel& model, float disparity) const;

private:
    /// Before and after each column, so that neighbours can be asked for anywhere.
    static constexpr int kMargin = 8;
    static constexpr int kGradientPx = 8;

    const float* at(const std::vector<float>& list, int column) const {
        return list.data() + static_cast<std::size_t>(column) * stride_ + kMargin;
    }
    float* at(std::vector<float>& list, int column) const {
        return list.data() + static_cast<std::size_t>(column) * stride_ + kMargin;
    }
    void resize(const CellGrid& grid);
    void collectColumn(const CellGrid& grid, int column);
    void findBelow(const CellGrid& grid, const GroundModel& model, int column);

    int columns_ = 0, bins_ = 0, column_px_ = 1, bin_px_ = 1, stride_ = 0;
    std::vector<float> u_, v_;
    std::vector<float> disparity_, gradient_, weight_, worth_;
    std::vector<float> trust_;  ///< less for what is within reach below something nearer
    std::vector<std::uint16_t> measured_;
    std::vector<int> measured_count_;
};

}  // namespace kova::camera
