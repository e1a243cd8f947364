#pragma once

#include <QQuaternion>

#include <array>
#include <vector>

#include "sdk/imu_data.h"

namespace kova::examples {

/// Attitude from rates and gravity by a complementary filter: the integrated gyroscope is trusted
/// in the short run, the direction of gravity in the long run. The heading is the gyroscope's alone
/// and drifts slowly.
class AttitudeFilter {
public:
    /// @param correction_time_s  time in which gravity wins over the gyroscope
    explicit AttitudeFilter(double correction_time_s = 1.0)
        : correction_time_s_(correction_time_s) {}

    /// Takes the next sample. The first one sets the tilt; samples that do not advance in time are
    /// ignored.
    void add(const imu::IMUData& sample);

    /// Turns from the camera's frame to a level one (x right, y down, z forward at the start).
    QQuaternion attitude() const { return attitude_; }

private:
    void levelBy(const imu::IMUData& sample, double share);

    double correction_time_s_;
    QQuaternion attitude_;
    std::int64_t last_ns_ = 0;
    bool started_ = false;
};

/// Roll (about z), pitch (about x) and yaw (about y) of an attitude [degrees].
struct TiltAngles {
    double roll_deg = 0;
    double pitch_deg = 0;
    double yaw_deg = 0;
};
TiltAngles tiltOf(const QQuaternion& attitude);

/// A sphere through measured vectors, by linear least squares.
struct SphereFit {
    bool valid = false;  ///< false: too few points, or nearly all in one plane
    Size3_<float> centre;
    float radius = 0;
};
SphereFit fitSphere(const std::vector<Size3_<float>>& points);

/// The correction that moves a fitted sphere to the origin and scales it to `radius` (0: no
/// scaling): offset, then a 3x3 matrix by rows. Nothing and identity where the fit is not valid.
std::array<float, 12> correctionOf(const SphereFit& fit, float radius);

}  // namespace kova::examples
