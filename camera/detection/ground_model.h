#pragma once

#include <array>

#include "camera/calibration/stereo_calibration.h"

namespace kova::camera {

/// The ground as the camera sees it: a plane, which is linear in disparity space, and on it a
/// longitudinal profile (piecewise linear in disparity, the v-disparity form of Labayrade, Aubert
/// and Tarel, 2002), so that a ramp is ground too. The profile may run at an angle to the camera's
/// axis: a ramp is seldom met head-on.
///
/// Disparities here are "depth disparities" d = fx * baseline / Z [px]: the measured disparity plus
/// the geometry's offset. On the plane d = s(u, v) = a*u + b*v + c. With the camera's height h over
/// the plane, a point of disparity d at the pixel (u, v) lies h * (1 - s/d) over the plane.
struct GroundModel {
    static constexpr int kKnots = 6;

    double a = 0, b = 0, c = 0;
    double height_mm = 0;                     ///< of the camera over the plane
    std::array<double, 3> down = {0, 1, 0};   ///< unit normal of the plane, away from the camera
    std::array<float, kKnots> knot{};         ///< plane disparities of the knots, falling [px]
    std::array<float, kKnots> knot_offset{};  ///< ground minus plane there [px]
    bool flat = true;                         ///< the profile is zero everywhere
    /// At the column u the profile's knots and offsets are this many times as large.
    double stretch = 1, stretch_per_px = 0;

    /// The same ground as it is in one column: what asks for the profile asks this.
    GroundModel inColumn(double u) const;

    /// Disparity of the plane at a pixel; the horizon is where it is 0.
    double planeAt(double u, double v) const { return a * u + b * v + c; }

    /// Disparity of the ground where the plane has the disparity s.
    float groundOf(float s) const;

    /// The inverse of groundOf().
    float planeOf(float d) const;

    /// Height [mm] over the local ground of a point of disparity d where the plane has s.
    float heightOver(float s, float d) const {
        return static_cast<float>(height_mm) * (planeOf(d) - s) / d;
    }

    /// Slope of the profile against the plane [rad] where the plane has the disparity s; rising
    /// away from the camera is positive.
    float slopeAt(float s, const RectifiedGeometry& geometry) const;

    /// Angle of the optical axis below the ground's horizon [rad], and the rotation about it.
    double pitch() const;
    double roll() const;

    /// The plane with this normal and height.
    static GroundModel fromNormal(const std::array<double, 3>& down, double height_mm,
                                  const RectifiedGeometry& geometry);
    /// The plane with these coefficients; false when they are no plane below the camera.
    static bool fromCoefficients(double a, double b, double c, const RectifiedGeometry& geometry,
                                 GroundModel& model);
};

}  // namespace kova::camera
