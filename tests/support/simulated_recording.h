#pragma once

#include <functional>
#include <string>
#include <vector>

#include "camera/simulation/renderer.h"
#include "camera/sources/frame.h"

namespace kova::test {

struct SimulatedRecordingOptions {
    std::string scene = "demo";
    std::uint32_t seed = 1;
    int frames = 6;
    int width = 640;   ///< [px] of one eye
    int height = 400;  ///< [px]
    double fps = 30;
    double start_s = 1;  ///< into the scene
    /// Pictures and calibration agree exactly, no noise; off: as real ones.
    bool exact = false;
    /// Rendered once and repeated with fresh noise: a still scene, and quick.
    bool still = false;
    bool imu = false;
    /// May change what is recorded, for instance the eyes' layout or a frame's bytes.
    std::function<void(camera::StreamInfo&)> stream;
    std::function<void(int index, camera::RawFrame&)> frame;
};

/// Renders a scene and records it.
/// @param truth  if not null, receives the truth of every frame (of the first one when still)
/// Fails the running test when that does not work.
void recordSimulation(const std::string& path, const SimulatedRecordingOptions& options,
                      std::vector<camera::FrameTruth>* truth = nullptr);

}  // namespace kova::test
