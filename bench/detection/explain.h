#pragma once

#include <string>

#include "bench/detection/scene_truth.h"
#include "bench/detection/scoring.h"
#include "camera/base/disparity.h"
#include "camera/detection/detection_frame.h"

namespace kova::bench {

/// One line per object that should have been found and was not, and per false alarm: where it is,
/// what the matcher and the detector had there. Before these two lines on the frame: how far off
/// the ground is, and why textured ground and obstacles are not labelled.
/// @param where  beginning of every line
std::string explain(const std::string& where, const camera::DetectionFrame& frame,
                    const camera::DisparityMap& map, const Findings& findings,
                    const SceneTruth& truth, int max_disparity);

}  // namespace kova::bench
