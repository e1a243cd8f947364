#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "camera/simulation/renderer.h"
#include "camera/sources/frame.h"

namespace kova::bench {

/// One frame of a simulated drive with its truth.
struct DriveFrame {
    camera::RawFrame raw;
    camera::FrameTruth truth;  ///< empty for frames that are not judged
};

/// Keeps the rendered frames of drives in a folder, since rendering takes most of the time of a
/// run. A file holds one drive and the text that describes it; it knows nothing of the simulator's
/// code: delete the folder after a change of that.
class DriveCache {
public:
    /// @param folder  empty: nothing is kept
    explicit DriveCache(std::filesystem::path folder) : folder_(std::move(folder)) {}

    /// The drive that `about` describes.
    /// @return false where there is none, or none that can be read
    bool load(const std::string& about, std::vector<DriveFrame>& frames) const;
    /// Without effect where the folder cannot be written: the next run renders again.
    void store(const std::string& about, const std::vector<DriveFrame>& frames) const;

private:
    std::filesystem::path fileOf(const std::string& about) const;
    std::filesystem::path folder_;
};

}  // namespace kova::bench
