#pragma once

#include <string>
#include <vector>

#include "bench/depth/ground_truth.h"

namespace kova::bench {

/// Times of one method on one size of picture [ms].
struct SpeedRow {
    int width = 0, height = 0, levels = 0;
    std::string method, target;
    double least_ms = 0, median_ms = 0;
    double ratio_of_least = 0, ratio_of_medians = 0;  ///< of 3WAY to this; larger is faster
};

struct SpeedReport {
    std::string cpu;
    int threads = 0, runs = 0;
    double memory_mb = 0;  ///< resident memory that all modes took at 1280x800/128
    std::vector<SpeedRow> rows;
};

/// Times the matcher in all modes and SIMD targets beside OpenCV's 3WAY with block 3, interleaved:
/// every run goes through all of them once.
///
/// @param pair  scaled to 1280x800 with 128 disparities and to 640x400 with 64
/// @param targets  all SIMD targets of this CPU, else the best one and AVX2
SpeedReport benchSpeed(const TruePair& pair, int threads, int runs, bool targets);

std::string speedTable(const SpeedReport& report);
std::string speedJson(const SpeedReport& report);

}  // namespace kova::bench
