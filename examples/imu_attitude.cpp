#include "examples/imu_attitude.h"

#include <Eigen/Dense>

#include <QVector3D>

#include <algorithm>
#include <cmath>

namespace kova::examples {
namespace {

constexpr double kGravity = 9.80665;     // m/s²
constexpr double kMaxShake = 1.5;        // m/s²; beyond it the acceleration is not gravity
constexpr double kLongestStep = 0.5;     // s; over a gap the gyroscope knows nothing
constexpr double kSmallestSpread = 0.1;  // of the radius, in the direction of least spread
constexpr std::size_t kFewestPoints = 20;

QVector3D vectorOf(const Size3_<float>& v) {
    return {v.x, v.y, v.z};
}

}  // namespace

// Turns the attitude by a share of the angle between measured and true up, about a level axis.
void AttitudeFilter::levelBy(const imu::IMUData& sample, double share) {
    const QVector3D accel = vectorOf(sample.accel);
    if (accel.isNull())
        return;
    const QVector3D up = attitude_.rotatedVector(accel.normalized());
    const QQuaternion full = QQuaternion::rotationTo(up, QVector3D(0, -1, 0));
    attitude_ = (QQuaternion::slerp(QQuaternion(), full, static_cast<float>(share)) * attitude_)
                    .normalized();
}

void AttitudeFilter::add(const imu::IMUData& sample) {
    if (!started_) {
        started_ = true;
        last_ns_ = sample.t_ns;
        levelBy(sample, 1.0);
        return;
    }
    if (sample.t_ns <= last_ns_)
        return;
    const double dt = std::min(static_cast<double>(sample.t_ns - last_ns_) * 1e-9, kLongestStep);
    last_ns_ = sample.t_ns;
    const QVector3D rate = vectorOf(sample.gyro);
    const auto angle_deg = static_cast<float>(rate.length() * dt * 180.0 / M_PI);
    if (angle_deg > 0)
        attitude_ = (attitude_ * QQuaternion::fromAxisAndAngle(rate, angle_deg)).normalized();
    if (std::fabs(vectorOf(sample.accel).length() - kGravity) < kMaxShake)
        levelBy(sample, dt / (correction_time_s_ + dt));
}

TiltAngles tiltOf(const QQuaternion& attitude) {
    // Qt's order is roll (z), then pitch (x), then yaw (y), which suits a camera.
    const QVector3D angles = attitude.toEulerAngles();
    return {angles.z(), angles.x(), angles.y()};
}

SphereFit fitSphere(const std::vector<Size3_<float>>& points) {
    SphereFit fit;
    if (points.size() < kFewestPoints)
        return fit;
    const auto count = static_cast<Eigen::Index>(points.size());
    Eigen::MatrixX3d p(count, 3);
    for (Eigen::Index i = 0; i < count; ++i) {
        const Size3_<float>& point = points[static_cast<std::size_t>(i)];
        p.row(i) << point.x, point.y, point.z;
    }
    const Eigen::RowVector3d mean = p.colwise().mean();
    p.rowwise() -= mean;

    // |p|² = 2 c·p + (r² - |c|²) is linear in the centre c and the constant.
    Eigen::MatrixX4d a(count, 4);
    a.leftCols<3>() = 2 * p;
    a.col(3).setOnes();
    const Eigen::Vector4d solution = a.colPivHouseholderQr().solve(p.rowwise().squaredNorm());
    const Eigen::Vector3d centre = solution.head<3>();
    const double radius2 = solution[3] + centre.squaredNorm();
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> spread(p.transpose() * p /
                                                                static_cast<double>(count));
    if (!(radius2 > 0) || !std::isfinite(radius2) ||
        std::sqrt(std::max(0.0, spread.eigenvalues()[0])) < kSmallestSpread * std::sqrt(radius2))
        return fit;
    const Eigen::Vector3d at = centre + mean.transpose();
    fit.centre = {static_cast<float>(at.x()), static_cast<float>(at.y()),
                  static_cast<float>(at.z())};
    fit.radius = static_cast<float>(std::sqrt(radius2));
    fit.valid = true;
    return fit;
}

std::array<float, 12> correctionOf(const SphereFit& fit, float radius) {
    if (!fit.valid)
        return {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    const float scale = radius > 0 ? radius / fit.radius : 1.0f;
    return {fit.centre.x, fit.centre.y, fit.centre.z, scale, 0, 0, 0, scale, 0, 0, 0, scale};
}

}  // namespace kova::examples
