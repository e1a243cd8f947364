#pragma once

#include <cstdint>
#include <vector>

#include "camera/simulation/scene.h"
#include "camera/sources/frame.h"

namespace kova::camera {

/// Rate of the simulated inertial unit.
constexpr std::int64_t kImuPeriodNs = 5'000'000;

/// One sample of the unit in the left camera, with the noise and the constant bias of a small
/// MEMS sensor (drawn from the scene's seed).
///
/// @param number    selects the noise; the sample's place in time on a grid of kImuPeriodNs
/// @param t_s       time of the scene
/// @param forwards  false while the scene's time runs backwards: rates change their sign
/// @param noise     false: neither noise nor bias, for exact tests
ImuSample simulateImu(const Scene& scene, std::int64_t number, double t_s, bool forwards = true,
                      bool noise = true);

/// All samples of t_begin <= t < t_end, for a scene whose time is t.
std::vector<ImuSample> simulateImu(const Scene& scene, std::int64_t begin_ns, std::int64_t end_ns);

}  // namespace kova::camera
