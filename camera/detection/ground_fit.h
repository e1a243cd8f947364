#pragma once

#include <array>
#include <vector>

#include "camera/detection/cell_grid.h"
#include "camera/detection/ground_model.h"

namespace kova::camera {

/// What is known about the ground before a frame is looked at.
struct GroundPrior {
    /// Direction of gravity in the camera's frame; level where nothing is known.
    std::array<double, 3> down = {0, 1, 0};
    bool has_gravity = false;  ///< `down` was measured
    bool has_track = false;    ///< `track` is the plane of the frames before, predicted to this one
    GroundModel track;
};

struct GroundFit {
    bool found = false;
    GroundModel model;
    float support = 0;  ///< inliers / (inliers + confident cells clearly below), 0..1
    float area = 0;     ///< inlying cells, part of the picture
    /// Root mean square of the residuals near the plane, in tolerances: 0.4 to 0.8 on a real
    /// ground, over 1 where depths only scatter.
    float spread = 0;
};

/// Fits the ground plane to a grid: RANSAC (Fischler and Bolles, 1981) with a fixed seed, two-point
/// samples with a drawn roll beside three-point ones, then reweighted least squares (Tukey's
/// biweight), weighted by confidence. Priors are soft: gravity with a sigma of 2 degrees, without
/// it no roll with a sigma of 3, the tracked plane with 1.5 degrees and 5 % of height. Cells within
/// the matcher's reach of something nearer, which are measured too near, hardly count. On the plane
/// a longitudinal profile is found.
///
/// "Not found" is the answer where a plane does not explain enough of the picture below its
/// horizon, where much lies clearly below it, or where depths scatter about it without a peak.
class GroundFitter {
public:
    /// @param min_support  inliers / (inliers + clearly below) that a plane needs, 0..1
    GroundFit fit(const CellGrid& grid, const RectifiedGeometry& geometry, const GroundPrior& prior,
                  float min_support);

private:
    struct Sample {
        float u, v, d;
        float gradient;  ///< of the disparity down the column [px/px]
        float weight;
        std::uint32_t cell;
    };
    void collect(const CellGrid& grid);
    void findShadowed(const CellGrid& grid, const GroundModel& model);
    /// @return 0 for what is clearly below `to_beat`
    float score(const GroundModel& model, const GroundPrior& prior, float to_beat) const;
    GroundModel search(const RectifiedGeometry& geometry, const GroundPrior& prior,
                       float& best) const;
    void refine(const CellGrid& grid, const RectifiedGeometry& geometry, const GroundPrior& prior,
                GroundModel& model);
    void judge(const CellGrid& grid, float min_support, GroundFit& fit) const;

    std::vector<std::uint8_t> below_;         ///< of each cell: within reach below what is nearer
    std::vector<std::uint8_t> shadowed_;      ///< or beside that
    std::vector<Sample> samples_;             ///< every measured cell
    std::vector<std::uint32_t> ground_like_;  ///< samples whose disparity grows downwards
    std::vector<Sample> scored_;              ///< a thinned set of all samples
};

}  // namespace kova::camera
