#pragma once

#include <vector>

#include "camera/base/image.h"
#include "camera/calibration/stereo_calibration.h"
#include "camera/detection/detection_frame.h"
#include "camera/detection/ground_model.h"

namespace kova::bench {

/// A column of the picture that is said to hold an obstacle.
struct FoundColumn {
    int x_begin = 0, x_end = 0;
    float disparity = 0;    ///< [px]
    bool too_near = false;  ///< `disparity` is a lower bound
};

/// What a detector says about a frame, whichever it is.
struct Findings {
    bool has_ground = false;
    camera::GroundModel ground;
    std::vector<FoundColumn> obstacles;       ///< by column
    camera::Image<std::uint8_t> ground_map;   ///< 0 obstacle, 127 not sure, 255 ground
    std::vector<camera::ColumnState> states;  ///< per pixel column
};

/// What is commonly built: a plane by RANSAC (Fischler and Bolles, 1981) on the disparities of
/// OpenCV's 3WAY matcher, a threshold on the height over it, connected components. Every frame
/// stands alone; without a plane nothing is found.
void detectPlainly(const camera::ImageView<const std::uint8_t>& left,
                   const camera::ImageView<const std::uint8_t>& right,
                   const camera::RectifiedGeometry& geometry, int levels, Findings& out);

}  // namespace kova::bench
