#pragma once

#include "camera/simulation/intersect.h"
#include "camera/simulation/scene.h"

namespace kova::camera {

/// How texture coordinates [mm] change per pixel to the right (x) and down (y).
struct Footprint {
    float u_x = 0, v_x = 0, u_y = 0, v_y = 0;
};

/// @param right, down  how the ray's direction changes per pixel, in the world
Footprint footprintAt(const SurfacePoint& point, const Vec3& direction, const Vec3& right,
                      const Vec3& down, float t);

/// Reflected grey level of a material, in full light, as the mean of 4 to 9 samples over a
/// pixel.
/// @param motion_x, motion_y  how far the picture moves during the exposure [px]
float albedo(const Material& material, float u, float v, const Footprint& footprint, float motion_x,
             float motion_y);

/// The same as a single sample, as wide as `width_mm`.
float albedoSample(const Material& material, float u, float v, float width_mm);

/// Share of the full light that reaches a surface.
float illumination(const Scene& scene, const Vec3& normal, bool in_shadow);

/// Grey level of the sky in a direction.
float skyAt(const Scene& scene, const Vec3& direction);

/// The same above a row of houses and trees that is infinitely far: what panes and paint reflect.
float surroundingsAt(const Scene& scene, const Vec3& direction);

}  // namespace kova::camera
