#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "camera/sources/frame.h"

namespace kova::camera {

/// Rotation matrix by rows.
using Rotation = std::array<double, 9>;

/// The direction of gravity in the camera's frame from an inertial unit: the complementary filter
/// on the direction alone of Mahony, Hamel and Pflimlin (Nonlinear complementary filters on the
/// special orthogonal group, IEEE TAC 2008). The gyroscope turns the estimate, the accelerometer
/// pulls it back slowly, and less the more its length differs from gravity; the gyroscope's bias is
/// estimated by the integral term. The accelerometer is averaged as a vector first, turned by the
/// gyroscope: shaking, which may be stronger than gravity, comes to nothing there, while each
/// direction of its own would be far off.
class GravityFilter {
public:
    void reset();

    /// Takes the samples since the frame before, in order of time.
    void update(const std::vector<ImuSample>& samples);

    /// Enough was seen to be relied upon.
    bool ready() const { return seen_s_ > 0.3; }
    /// Unit vector towards the ground.
    const std::array<double, 3>& down() const { return down_; }
    /// Turns directions of the camera's frame before the last update() into that after it.
    const Rotation& rotation() const { return rotation_; }

private:
    bool started_ = false;
    std::int64_t t_ns_ = 0;
    double seen_s_ = 0;
    std::array<double, 3> down_ = {0, 1, 0};
    std::array<double, 3> bias_ = {0, 0, 0};
    std::array<double, 3> force_ = {0, 0, 0};  ///< of the accelerometer, averaged [m/s²]
    Rotation rotation_ = {1, 0, 0, 0, 1, 0, 0, 0, 1};
};

}  // namespace kova::camera
