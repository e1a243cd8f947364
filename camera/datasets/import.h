#pragma once

#include <functional>
#include <string>

#include "camera/datasets/stereo_sequence.h"
#include "camera/recording/recording_writer.h"

namespace kova::camera {

struct ImportReport {
    int written = 0;
    int skipped = 0;  ///< unreadable, or of another size than the first pair
    std::int64_t bytes = 0;
};

/// Writes a set of pictures as a recording: the original pixels, both eyes side by side, grey or in
/// colour as the first left picture is; with the set's time stamps, inertial samples and
/// calibration.
///
/// @param progress  called after each pair with the number done and of all; false stops the import
/// @return as RecordingWriter; kInvalidFile when no pair can be read; kInvalidArgument when stopped
Result<ImportReport> importSequence(const StereoSequence& sequence, const std::string& path,
                                    const RecordingOptions& options = {},
                                    const std::function<bool(int done, int all)>& progress = {});

}  // namespace kova::camera
