#include "camera/simulation/imu.h"

#include <cmath>

#include "camera/simulation/random.h"

namespace kova::camera {

namespace {

constexpr float kGravity = 9.81f;             // m/s^2, along world y
constexpr Vec3 kMagneticField = {0, 44, 20};  // µT: north is ahead, dip about 65 degrees
constexpr float kAccelNoise = 0.03f;          // m/s^2
constexpr float kGyroNoise = 0.002f;          // rad/s
constexpr float kMagnetNoise = 0.4f;          // µT
constexpr float kAccelBias = 0.04f, kGyroBias = 0.003f, kMagnetBias = 1.0f;

/// Angular rate in the camera's frame [rad/s]: the rotation from one pose to another, as a vector.
Vec3 angularRate(const Mat3& before, const Mat3& after, float seconds) {
    Mat3 r;  // before^T * after
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.m[i * 3 + j] = dot(before.column(i), after.column(j));
    // For small turns the antisymmetric part is the rotation vector.
    const float scale = 0.5f / seconds;
    return Vec3{r.m[7] - r.m[5], r.m[2] - r.m[6], r.m[3] - r.m[1]} * scale;
}

void addNoise(std::array<float, 3>& values, std::uint32_t seed, std::uint32_t number,
              std::uint32_t kind, float noise, float bias) {
    for (std::uint32_t axis = 0; axis < 3; ++axis)
        values[axis] += bias * normalFloat(hash(seed, kind, axis)) +
                        noise * normalFloat(hash(seed ^ 0x5bd1e995u, number, kind * 4 + axis));
}

}  // namespace

ImuSample simulateImu(const Scene& scene, std::int64_t number, double t_s, bool forwards,
                      bool noise) {
    constexpr double kStep = 0.008;  // fine enough for the vibration, coarse enough for floats
    const Pose here = scene.cameraPose(t_s);
    const Pose before = scene.cameraPose(t_s - kStep), after = scene.cameraPose(t_s + kStep);
    const Vec3 bend = (after.position - here.position) - (here.position - before.position);
    const Vec3 acceleration = bend * static_cast<float>(0.001 / (kStep * kStep));
    const Vec3 force = here.rotation.transposed(acceleration - Vec3{0, kGravity, 0});
    constexpr double kTurnStep = 0.0025;
    const Vec3 rate = angularRate(scene.cameraPose(t_s - kTurnStep).rotation,
                                  scene.cameraPose(t_s + kTurnStep).rotation,
                                  static_cast<float>(forwards ? 2 * kTurnStep : -2 * kTurnStep));
    const Vec3 magnet = here.rotation.transposed(kMagneticField);

    ImuSample sample;
    sample.t_ns = number * kImuPeriodNs;
    sample.accel = {force.x, force.y, force.z};
    sample.gyro = {rate.x, rate.y, rate.z};
    sample.magnet = {magnet.x, magnet.y, magnet.z};
    if (noise) {
        const std::uint32_t seed = hash(scene.seed, 606);
        const auto n = static_cast<std::uint32_t>(number);
        addNoise(sample.accel, seed, n, 1, kAccelNoise, kAccelBias);
        addNoise(sample.gyro, seed, n, 2, kGyroNoise, kGyroBias);
        addNoise(sample.magnet, seed, n, 3, kMagnetNoise, kMagnetBias);
    }
    return sample;
}

std::vector<ImuSample> simulateImu(const Scene& scene, std::int64_t begin_ns, std::int64_t end_ns) {
    std::vector<ImuSample> samples;
    std::int64_t number =
        begin_ns >= 0 ? (begin_ns + kImuPeriodNs - 1) / kImuPeriodNs : -(-begin_ns / kImuPeriodNs);
    for (; number * kImuPeriodNs < end_ns; ++number)
        samples.push_back(simulateImu(scene, number, static_cast<double>(number) * 0.005));
    return samples;
}

}  // namespace kova::camera
