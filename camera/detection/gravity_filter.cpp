#include "camera/detection/gravity_filter.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>

namespace kova::camera {

namespace {
constexpr double kGravity = 9.80665;    // [m/s²]
constexpr double kPull = 0.4;           // proportional gain [1/s]
constexpr double kSettling = 4;         // at the start, over the time that was seen,
constexpr double kSettled = 1;          // until then [s]
constexpr double kBiasPull = 0.02;      // integral gain [1/s²]
constexpr double kSmooth = 0.25;        // over which the accelerometer is averaged [s]
constexpr double kMaxStep = 0.1;        // a longer gap is not integrated over [s]
constexpr double kTrustedExcess = 1.5;  // [m/s²]
}  // namespace

void GravityFilter::reset() {
    *this = GravityFilter();
}

void GravityFilter::update(const std::vector<ImuSample>& samples) {
    Eigen::Matrix3d turned = Eigen::Matrix3d::Identity();
    Eigen::Vector3d down(down_[0], down_[1], down_[2]);
    Eigen::Vector3d bias(bias_[0], bias_[1], bias_[2]);
    Eigen::Vector3d force(force_[0], force_[1], force_[2]);
    for (const ImuSample& sample : samples) {
        const Eigen::Vector3d accel(sample.accel[0], sample.accel[1], sample.accel[2]);
        const Eigen::Vector3d gyro(sample.gyro[0], sample.gyro[1], sample.gyro[2]);
        const double norm = accel.norm();
        const bool usable = std::isfinite(norm) && norm > 0.1 * kGravity;
        if (!gyro.allFinite())
            continue;
        if (!started_) {
            if (!usable)
                continue;
            down = -accel / norm;
            force = accel;
            started_ = true;
            t_ns_ = sample.t_ns;
            continue;
        }
        const double dt = static_cast<double>(sample.t_ns - t_ns_) * 1e-9;
        if (dt <= 0)
            continue;
        t_ns_ = sample.t_ns;
        if (dt > kMaxStep) {
            if (usable)
                force = accel;
            continue;
        }
        seen_s_ += dt;
        Eigen::Vector3d rate = gyro - bias;
        const Eigen::Vector3d step = rate * dt;
        if (step.norm() > 0) {
            // Directions that stand still in the world turn the other way in the camera's frame.
            const Eigen::Matrix3d turn =
                Eigen::AngleAxisd(-step.norm(), step.normalized()).toRotationMatrix();
            turned = turn * turned;
            down = turn * down;
            force = turn * force;
        }
        if (usable) {
            // Shaking is no direction; as a vector it comes to nothing.
            force += (accel - force) * std::min(1.0, dt / std::min(seen_s_, kSmooth));
            const double length = std::max(force.norm(), 0.1 * kGravity);
            const double excess = std::fabs(length - kGravity) / kTrustedExcess;
            const double trust = std::exp(-excess * excess);
            const Eigen::Vector3d error = down.cross(-force / length);
            const double pull = std::max(kPull, kSettling / seen_s_ - kSettling / kSettled);
            const Eigen::Vector3d correction = error * std::min(1.0, trust * pull * dt);
            down = (down + correction.cross(down)).normalized();
            bias += trust * kBiasPull * dt * error;
        }
    }
    down_ = {down[0], down[1], down[2]};
    bias_ = {bias[0], bias[1], bias[2]};
    force_ = {force[0], force[1], force[2]};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) rotation_[static_cast<std::size_t>(3 * r + c)] = turned(r, c);
}

}  // namespace kova::camera
