#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "camera/base/status.h"
#include "camera/matching/matcher.h"

namespace kova::bench {

struct RowsBenchOptions {
    std::vector<std::string> scenes = {"floor", "room", "street", "kerb", "objects", "low_light"};
    int seeds = 4;
    std::uint32_t seed_base = 1000;
    int frames = 32;
    int width = 640, height = 400;
    camera::WorkMode mode = camera::WorkMode::kMedium;
};

/// How far the rows of the eyes are apart before and after their alignment, on simulated drives
/// whose true residual errors are known. Prints a table.
camera::Status benchRows(const RowsBenchOptions& options);

/// The same on a real sequence, judged by matched features, which the alignment does not use: the
/// median distance of their rows with and without it.
/// @param folder  as published sets have it, with a calibration
/// @return as openSequence() and Pipeline::make()
camera::Status benchRealRows(const std::string& folder, camera::WorkMode mode);

}  // namespace kova::bench
