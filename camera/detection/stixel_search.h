#pragma once

#include <cstdint>
#include <vector>

#include "camera/base/scratch_pool.h"
#include "camera/detection/cell_grid.h"
#include "camera/detection/ground_model.h"

namespace kova::camera {

enum class SegmentKind : std::uint8_t {
    kGround,
    kRaised,  ///< lies parallel to the ground, higher or lower: a pavement behind its kerb
    kObject,
    kSky,
};

/// A piece of one column with one explanation.
struct Segment {
    SegmentKind kind = SegmentKind::kSky;
    int y_top = 0, y_bottom = 0;  ///< rows, half-open [px]
    float disparity = 0;          ///< of an object: depth disparity [px]
    float sigma_px = 0;           ///< its standard deviation
    float slant = 0;              ///< growth of the disparity down the segment [px/px]
    float slant_sigma = 0;        ///< its standard deviation [px/px]
    float evidence = 0;           ///< how much better than ground it explains the cells [nat]
    float samples = 0;            ///< independent measurements
    float confidence = 0;         ///< mean of its cells, 0..1
    float texture = 0;            ///< change of the picture over 4 px by that over 1 px; 1: noise
    float rise_mm = 0;            ///< of a raised surface: over the ground
    bool too_near = false;        ///< mostly nearer than the search can see
};

/// Explains every column of the grid as ground, objects and sky from the bottom up: the multi-layer
/// stixel world of Pfeiffer and Franke (BMVC 2011) after Badino, Franke and Pfeiffer (DAGM 2009).
///
/// The most probable explanation is found exactly, by a Viterbi pass per column over the states
/// ground, raised surface, sky and object-at-a-disparity: a data term with an outlier rate taken
/// from the confidence (Pfeiffer, Gehrig and Schneider, CVPR 2013), priors for the number of
/// segments, for objects standing on the ground, for farther objects above nearer ones, against
/// anything below the ground. Errors of neighbouring pixels are alike, so a cell counts as the
/// number of independent measurements that it is worth. (One simplification: of the raised surfaces
/// below an object only the best is considered.)
class StixelSearch {
public:
    StixelSearch();
    ~StixelSearch();
    StixelSearch(const StixelSearch&) = delete;
    StixelSearch& operator=(const StixelSearch&) = delete;

    /// @param max_disparity  end of the search, as depth disparity [px]
    void resize(const CellGrid& grid, float max_disparity);

    /// @param focal_px  of the picture, across its rows
    /// @param ground    null: there is none
    void run(const CellGrid& grid, float focal_px, const GroundModel* ground);

    /// Segments of a column, from the bottom up; rows are those of the cells.
    const std::vector<Segment>& segments(int column) const { return segments_[column]; }
    std::vector<Segment>& segments(int column) { return segments_[column]; }

private:
    struct Scratch;
    void runColumn(const CellGrid& grid, const GroundModel* ground, int column, Scratch& scratch);

    float new_segment_ = 0;      ///< cost of a border between two cells [nat]
    std::vector<float> levels_;  ///< object disparities, rising [px]; whole groups
    std::vector<std::vector<Segment>> segments_;
    ScratchPool<Scratch> scratch_;
};

}  // namespace kova::camera
