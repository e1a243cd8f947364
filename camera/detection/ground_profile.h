#pragma once

#include "camera/detection/ground_cells.h"
#include "camera/detection/ground_model.h"

namespace kova::camera {

/// Finds the longitudinal profile on a fitted plane: level up to a knee, then a ramp up or down.
/// Knee and slope are those that most of the cells that look like ground lie on, in a histogram by
/// distance and offset from the plane; then the ramp is fitted as a second plane by reweighted
/// least squares (Wedel et al., 2009, fit a spline likewise), so that it may be met at an angle. A
/// ramp must be seen all along and explain clearly more than the plane does, and than a level
/// surface behind a step, a pavement, does; else the plane stays flat. What seems to rise in the
/// corner before something upright, which a matcher rounds, has no vote.
///
/// @param previous  ground of the frame before: a ramp that was there is believed sooner; null:
/// none
/// @param cells  of the grid; their worth is found anew where there is a ramp
void fitGroundProfile(const CellGrid& grid, const RectifiedGeometry& geometry,
                      const GroundModel* previous, GroundCells& cells, GroundModel& model);

}  // namespace kova::camera
