#pragma once

#include <cstdint>

#include "camera/base/image.h"
#include "camera/detection/detection_frame.h"
#include "sdk/modes.h"
#include "sdk/records.h"

namespace kova::camera {

/// What the views are painted over.
struct ViewInput {
    ImageView<const std::uint8_t> left;  ///< rectified, grey
    ImageView<const Rgba> left_colour;   ///< the same in colour; empty for a grey camera
};

/// Geometry of the top view: constant, 800 x 800 px.
bino::ObstacleDetectionTopViewParameters topViewParameters();

/// Size of the top view [px]: 2 x half width x scale, (far - near) x scale, truncated.
int topViewWidth();
int topViewHeight();

/// Paints one of the four views of picture size (obstacles, ground, image with stixels, stixels).
/// `out` has the size of `input.left`.
void paintImageView(bino::OBSTACLE_VIEW_TYPE type, const ViewInput& input,
                    const DetectionFrame& frame, const ImageView<Rgba>& out);

/// Colour of an obstacle in the top view. In the side range: beyond far green, mid to far yellow,
/// near to mid orange, below near red. Outside of it: beyond mid green, near to mid yellow, below
/// near orange. See zoneOf() for the borders.
Rgba topViewColour(float ahead_mm, float lateral_mm);

/// Paints the top view, the camera at the middle of the lower edge, looking up: obstacles in the
/// colours of topViewColour(), ground seen without a gap in a lighter grey; `out` has
/// topViewWidth() x topViewHeight() pixels.
void paintTopView(const DetectionFrame& frame, const ImageView<Rgba>& out);

/// Copies the ground map: 0 obstacle, 127 not sure, 255 ground. `out` may be wider than the frame
/// by its row padding only.
void paintGroundMap(const DetectionFrame& frame, const ImageView<std::uint8_t>& out);

}  // namespace kova::camera
