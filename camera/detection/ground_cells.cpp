#include "camera/detection/ground_cells.h"

#include <algorithm>
#include <cmath>

#include "camera/base/parallel.h"

namespace kova::camera {

namespace {

constexpr int kReachAcross = 16;        // of what is nearer, into the ground beside it [px]
constexpr int kReachDown = 16;          // from its foot
constexpr float kShadowedWorth = 0.05;  // of a cell within that reach
/// Rows of cells at the lower edge that a matcher measures too far: what it compares with ends
/// there, and what lies above is farther.
constexpr int kCutShort = 2;

}  // namespace

void GroundCells::resize(const CellGrid& grid) {
    columns_ = grid.columns();
    bins_ = grid.bins();
    column_px_ = grid.columnPx();
    bin_px_ = grid.binPx();
    stride_ = (bins_ + kGroundGroup - 1) / kGroundGroup * kGroundGroup + 2 * kMargin;
    const std::size_t cells = static_cast<std::size_t>(columns_) * stride_;
    for (std::vector<float>* list : {&disparity_, &gradient_, &weight_, &worth_, &trust_})
        list->assign(cells, 0);
    measured_.resize(static_cast<std::size_t>(columns_) * bins_);
    measured_count_.resize(columns_);
    u_.resize(columns_);
    v_.resize(stride_);
    for (int column = 0; column < columns_; ++column) u_[column] = grid.centreX(column);
    for (int i = 0; i < stride_; ++i)
        v_[i] = (static_cast<float>(i - kMargin) + 0.5f) * static_cast<float>(bin_px_) - 0.5f;
    v_[kMargin + bins_ - 1] = grid.centreY(bins_ - 1);
}

void GroundCells::collect(const CellGrid& grid) {
    resize(grid);
    parallelFor(columns_, [&](int column) { collectColumn(grid, column); });
}

void GroundCells::collectColumn(const CellGrid& grid, int column) {
    const std::size_t first = grid.index(column, 0);
    float* d = at(disparity_, column);
    float* w = at(weight_, column);
    std::uint16_t* list = measured_.data() + static_cast<std::size_t>(column) * bins_;
    int count = 0;
    for (int bin = 0; bin < bins_; ++bin) {
        const bool measured = grid.kind[first + bin] == CellKind::kMeasured;
        d[bin] = grid.disparity[first + bin];
        w[bin] = measured ? grid.weight[first + bin] * grid.confidence[first + bin] : 0;
        list[count] = static_cast<std::uint16_t>(bin);
        count += measured;
    }
    measured_count_[column] = count;
    const int reach = gradientReach();
    const float over_one = 1 / static_cast<float>(reach * bin_px_);
    float* gradient = at(gradient_, column);
    for (int bin = 0; bin < bins_; ++bin) {
        const bool above = w[bin - reach] > 0;
        const bool below = w[bin + reach] > 0;
        const float high = above ? d[bin - reach] : d[bin];
        const float low = below ? d[bin + reach] : d[bin];
        const float scale = above & below ? 0.5f * over_one : over_one;
        gradient[bin] = w[bin] > 0 ? (low - high) * scale : 0;
    }
}

int GroundCells::firstBin(int column, const GroundModel& model, float disparity) const {
    const double row = (disparity - model.c - model.a * u_[column]) / model.b;
    const int bin =
        static_cast<int>(std::clamp(row / bin_px_ - 1, 0.0, static_cast<double>(bins_)));
    return bin / kGroundGroup * kGroundGroup;
}

void GroundCells::findBelow(const CellGrid& grid, const GroundModel& model, int column) {
    const int reach = kReachDown / bin_px_;
    const std::size_t first = grid.index(column, 0);
    const CellKind* kind = grid.kind.data() + first;
    const float* d = grid.disparity.data() + first;
    float* trust = at(trust_, column);
    const float b = static_cast<float>(model.b);
    const float above = static_cast<float>(model.a * u_[column] + model.c);
    const float* rows = v();
    const GroundModel surface = model.flat ? model : model.inColumn(u_[column]);
    float foot = 0;  // disparity of the last thing above
    int left = 0;    // bins from its foot on
    for (int bin = 0; bin < bins_; ++bin) {
        const float s = std::max(1.0f, surface.groundOf(above + b * rows[bin]));
        if (kind[bin] != CellKind::kEmpty) {
            const float nearest = kind[bin] == CellKind::kTooNear ? 1e6f : d[bin];
            if (nearest > s + 3 * groundTolerance(s)) {
                foot = nearest;
                left = reach + 1;
            }
        }
        trust[bin] = left > 0 ? kShadowedWorth : 1;
        left -= left > 0 && s >= foot;
    }
    std::fill(trust + std::max(0, bins_ - kCutShort), trust + bins_, 0.0f);
}

// Down to the foot of what is nearer and below that, and beside it.
void GroundCells::findShadowed(const CellGrid& grid, const GroundModel& model) {
    parallelFor(columns_, [&](int column) { findBelow(grid, model, column); });
    const int side = kReachAcross / grid.columnPx();
    parallelFor(columns_, [&](int column) {
        float* worth = at(worth_, column);
        const int first = std::max(0, column - side);
        const int last = std::min(columns_ - 1, column + side);
        std::copy_n(at(trust_, first), bins_, worth);
        for (int other = first + 1; other <= last; ++other) {
            const float* trust = at(trust_, other);
            for (int bin = 0; bin < bins_; ++bin)
                worth[bin] = trust[bin] < worth[bin] ? trust[bin] : worth[bin];
        }
        const float* weight = at(weight_, column);
        for (int bin = 0; bin < bins_; ++bin) worth[bin] *= weight[bin];
    });
}

}  // namespace kova::camera
