#pragma once

#include <limits>
#include <string>
#include <vector>

#include "bench/detection/fit_stixels.h"
#include "bench/detection/scoring.h"
#include "camera/base/status.h"

namespace kova::bench {

struct DetectionBenchOptions {
    int width = 640, height = 400;
    int seeds = 20;   ///< drives per group
    int frames = 27;  ///< rendered per drive; the first two only warm up
    std::uint32_t seed_base = 1000;
    double noise = 1;          ///< factor on the sensor's noise
    double texture = 1;        ///< factor on the contrast of all textures
    double baseline_mm = 120;  ///< of the rig
    /// Of the camera, where the scene has none of its own; NaN: 400, 600 and 1200 mm in turn.
    double camera_height_mm = std::numeric_limits<double>::quiet_NaN();
    /// Of the camera downwards, where the group has none; NaN: the scene's [degrees]
    double tilt_deg = std::numeric_limits<double>::quiet_NaN();
    std::vector<std::string> groups;  ///< empty: all
    bool plain = true;                ///< the plain detector too
    bool align_rows = true;           ///< as the pipeline does by default
    bool explain = false;             ///< a line per miss and false alarm on standard error
    std::string cache;                ///< folder that keeps the rendered drives; empty: none
    bool fit = false;                 ///< collect the report's samples too
    bool progress = false;            ///< a line per drive on standard error
};

/// One detector on one group of scenes.
struct DetectionRow {
    std::string group, detector;
    Scores scores;
};

struct DetectionReport {
    DetectionBenchOptions options;
    std::vector<StixelSample> samples;  ///< with `fit`: every candidate of every judged frame
    std::vector<DetectionRow> rows;     ///< by group; the last group is the sum of all
};

/// Names of all groups of scenes.
std::vector<std::string> detectionGroups();

/// Drives a simulated camera through the scenes, runs the pipeline in fast and medium mode with
/// default parameters, and compares with the truth; beside it the plain detector on the same
/// frames. The camera stands 0.4, 0.6 and 1.2 m above the ground, by seed, where the scene allows.
/// @return kInvalidArgument for an unknown group
camera::Status benchDetection(const DetectionBenchOptions& options, DetectionReport& report);

/// The report as text and for machines.
std::string detectionTable(const DetectionReport& report);
std::string detectionReportJson(const DetectionReport& report);

}  // namespace kova::bench
