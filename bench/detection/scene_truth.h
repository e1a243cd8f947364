#pragma once

#include <vector>

#include "camera/calibration/stereo_calibration.h"
#include "camera/simulation/renderer.h"

namespace kova::bench {

/// What rises less over the ground is no obstacle at the default limits [mm].
constexpr double kLowestRiseMm = 36;

/// What a column of the picture shows of an object: the range of its disparities [px].
struct ObjectColumn {
    int x = 0;
    float nearest = 0, farthest = 0;
};

/// An object of a scene as one frame shows it.
struct VisibleObject {
    int object = 0;          ///< index into Scene::objects
    double height_mm = 0;    ///< of the whole object
    double distance_mm = 0;  ///< z of its nearest visible pixel
    /// Disparity contrast of its top against the ground behind it, f * B * H / (h * Z) [px].
    double contrast_px = 0;
    bool overhead = false;
    std::vector<ObjectColumn> columns;
};

/// A frame's truth, in the terms in which detection is judged.
struct SceneTruth {
    camera::Image<float> disparity;        ///< [px], 0 where there is nothing
    camera::Image<std::uint8_t> label;     ///< a SurfaceLabel
    camera::Image<std::int16_t> object;    ///< index into Scene::objects, -1 for none
    camera::Image<std::uint8_t> in_right;  ///< 1 where the right eye sees the same surface
    camera::Image<std::uint8_t> textured;  ///< 1 where the picture changes enough to be matched
    /// Those of which at least half is visible to both eyes.
    std::vector<VisibleObject> objects;
};

/// @param left  the picture, for its texture
/// @param t_s   the frame's time, in the middle of the exposure
/// Columns in which a thing rises less than kLowestRiseMm, such as the rim of a cone's base, are
/// not kept: they are no obstacle there. Visible is judged against the object's outline without
/// anything before it, the part outside the picture included. What the right eye sees is found by a
/// z-buffer of the left truth.
void judgeTruth(const camera::FrameTruth& truth, const camera::Scene& scene, double t_s,
                const camera::RectifiedGeometry& geometry,
                const camera::ImageView<const std::uint8_t>& left, SceneTruth& out);

}  // namespace kova::bench
