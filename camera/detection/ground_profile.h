#pragma once

#include "camera/detection/cell_grid.h"
#include "camera/detection/ground_model.h"

namespace kova::camera {

/// How far a cell may lie from the ground and still belong to it [px]: matching noise and the
/// unevenness of real floors.
constexpr float groundTolerance(float s) {
    return 0.5f + 0.02f * s;
}

/// Finds the longitudinal profile on a fitted plane: offsets from the plane at 6 knots, spaced
/// evenly in the logarithm of distance, by dynamic programming over a histogram of the cells that
/// look like ground, then reweighted least squares (Wedel et al., 2009, fit a spline likewise). A
/// profile must explain clearly more than the plane does, else the plane stays flat.
///
/// @param previous  profile of the frame before, which a new one is blended with; null: none
void fitGroundProfile(const CellGrid& grid, const RectifiedGeometry& geometry,
                      const GroundModel* previous, GroundModel& model);

}  // namespace kova::camera
