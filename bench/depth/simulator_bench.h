#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "camera/base/status.h"

namespace kova::bench {

struct SimulatorBenchOptions {
    int width = 1280, height = 800, levels = 128;
    int seeds = 2;
    std::uint32_t seed_base = 1000;
    std::vector<std::string> scenes;  ///< only these; empty: all
};

/// Pixels that both eyes see, within a range of true distances.
struct RangeErrors {
    double pixels = 0;
    double measured = 0;      ///< with a disparity
    double wrong = 0;         ///< of those, with a depth error over 5 %
    double filled_wrong = 0;  ///< the same after fillRows(), of all pixels
};

/// What became of pixels nearer than the search can see, whether or not the right eye sees them.
struct NearErrors {
    double pixels = 0;
    double marked = 0;           ///< kTooNearDisparity
    double wrong = 0;            ///< with a disparity, which is wrong by more than 1 px
    double confident_wrong = 0;  ///< of those, with a confidence of 0.5 or more
    double in_reach = 0;         ///< pixels that the search can see, in all scenes
    double falsely_marked = 0;   ///< of those, kTooNearDisparity
};

constexpr int kDistanceRanges = 3;
constexpr double kRangeEnds[kDistanceRanges + 1] = {1000, 2000, 4000, 6000};  // [mm]

struct SimulatorRow {
    std::string scene, method;
    std::array<RangeErrors, kDistanceRanges> ranges;
    NearErrors near;
};

struct SimulatorReport {
    SimulatorBenchOptions options;
    std::vector<SimulatorRow> rows;  ///< scene by scene, then "all"
};

/// Names of the scenes that are measured.
std::vector<std::string> simulatorBenchScenes();

/// Depth of all work modes and of 3WAY on simulated pairs with the residual errors of a real
/// calibration.
camera::Status benchSimulator(const SimulatorBenchOptions& options, SimulatorReport& report);

std::string simulatorTable(const SimulatorReport& report);
std::string simulatorJson(const SimulatorReport& report);

}  // namespace kova::bench
