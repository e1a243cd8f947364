#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "camera/base/status.h"
#include "camera/simulation/renderer.h"

namespace kova::camera {

/// Writes the truth of a recording into a folder beside it; docs/simulator.md describes the files.
class TruthFolder {
public:
    /// `NAME.truth` for `NAME.kova`.
    static std::filesystem::path nameFor(const std::filesystem::path& recording);

    /// Makes the folder.
    /// @param overwrite  replaces a folder of that name; else an existing one is refused
    /// @return kWriteFailed
    static Result<TruthFolder> create(const std::filesystem::path& folder, bool overwrite);
    TruthFolder() = default;

    /// Writes depth (PFM), labels and masks (PNG) of one frame.
    Status write(int frame, std::int64_t t_ns, const FrameTruth& truth);
    /// Writes scene.json (what stands where, which rig) and poses.json.
    Status finish(const Scene& scene, const SimulatedRig& rig);

private:
    struct FramePose {
        std::int64_t t_ns = 0;
        Pose pose;
    };
    std::filesystem::path folder_;
    std::vector<FramePose> poses_;
};

}  // namespace kova::camera
