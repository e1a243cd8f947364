#pragma once

#include <string>
#include <vector>

#include "camera/base/status.h"
#include "camera/matching/matcher.h"

namespace kova::bench {

/// What a recording costs per frame, from its file to what the window shows, without the window.
struct PipelineReport {
    int width = 0, height = 0, frames = 0, threads = 0;
    /// Of all frames, unpaced: decoding on its own thread, detection, the views 1 and 4, the cloud.
    double frames_per_second = 0;

    struct Stage {
        std::string name;
        double least_ms = 0, median_ms = 0;
    };
    /// One after the other, on the same frames.
    std::vector<Stage> stages;
};

/// Replays a recording, at most `frames` frames of it.
/// @return as ReplaySource::open(), Pipeline::make() and Pipeline::process()
camera::Result<PipelineReport> benchPipeline(const std::string& recording, camera::WorkMode mode,
                                             int threads, int frames);

std::string pipelineTable(const PipelineReport& report);
std::string pipelineJson(const PipelineReport& report);

}  // namespace kova::bench
