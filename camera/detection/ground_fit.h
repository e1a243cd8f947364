#pragma once

#include <array>
#include <vector>

#include "camera/detection/cell_grid.h"
#include "camera/detection/ground_cells.h"
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
/// samples with a drawn roll beside three-point ones, scored breadth first (preemptive: Nister,
/// 2003), then reweighted least squares (Tukey's biweight), weighted by confidence. Priors are
/// soft: gravity with a sigma of 2 degrees, without it no roll with a sigma of 3, the tracked plane
/// with 1.5 degrees and 5 % of height; where nothing is found with the tracked plane, it is left
/// out. Cells within the matcher's reach of something nearer, which are measured too near, hardly
/// count. On the plane a longitudinal profile is found.
///
/// "Not found" is the answer where a plane does not explain enough of the picture below its
/// horizon, where much lies clearly below it, or where depths scatter about it without a peak.
class GroundFitter {
public:
    /// @param finer  for the profile: the same picture in lower cells, since ramps far away have
    ///               few rows; or `grid` itself
    /// @param min_support  inliers / (inliers + clearly below) that a plane needs, 0..1
    GroundFit fit(const CellGrid& grid, const CellGrid& finer, const RectifiedGeometry& geometry,
                  const GroundPrior& prior, float min_support);

private:
    /// Planes are scored on a part of the cells; a list per measure, whole groups.
    struct Scored {
        std::vector<float> u, v, d, gradient, weight;
        std::vector<std::uint32_t> ground_like;  ///< those whose disparity grows downwards
        std::size_t first = 0;                   ///< so many are a fair part of the picture
    };
    struct Trial {
        GroundModel model;
        float agreement = 1;  ///< with the priors
        float score = 0;
    };
    /// What speaks for and against a ground.
    struct Evidence {
        float inliers = 0, below = 0, near_weight = 0, near_squares = 0;
        int cells = 0, top = 0, bottom = 0;
    };
    GroundFit fitCells(const CellGrid& grid, const CellGrid& finer,
                       const RectifiedGeometry& geometry, const GroundPrior& prior,
                       float min_support);
    void chooseScored(const CellGrid& grid);
    float score(const GroundModel& model, std::size_t begin, std::size_t end) const;
    void draw(const RectifiedGeometry& geometry, const GroundPrior& prior);
    bool search(const RectifiedGeometry& geometry, const GroundPrior& prior, GroundModel& best);
    void refine(const CellGrid& grid, const RectifiedGeometry& geometry, const GroundPrior& prior,
                GroundModel& model);
    void judgeColumn(const GroundModel& model, int column, Evidence& evidence) const;
    void judge(const CellGrid& grid, float min_support, GroundFit& fit);

    GroundCells cells_, finer_cells_;
    Scored scored_;
    std::vector<Trial> trials_;
    std::vector<Evidence> evidence_;  ///< of each column
};

}  // namespace kova::camera
