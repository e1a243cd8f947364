#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "camera/base/status.h"
#include "camera/calibration/stereo_calibration.h"
#include "camera/recording/format.h"
#include "camera/sources/frame.h"

namespace kova::camera {

/// Frames that a recording says are missing.
struct DropRecord {
    std::int64_t t_ns = 0;  ///< time of the first frame after the gap
    std::int64_t count = 0;
    std::string cause;
};

/// Wall clock and clock of the frames at the same moment.
struct ClockPair {
    std::int64_t utc_ns = 0;
    std::int64_t t_ns = 0;
};

struct RecordingReaderOptions {
    /// Accept a file without calibration, for calibrating from it.
    bool without_calibration = false;
    /// Accept a file without frames, for looking at what a failed recording left.
    bool without_frames = false;
};

/// Reads a recording (docs/recording-format.md). A file that a killed recorder left is repaired
/// when opened; otherwise it is only read. Nothing in a file, hostile ones included, makes it crash
/// or hang. One thread at a time.
class RecordingReader {
public:
    /// @return kCannotOpenFile (missing, no permission, a folder, still being recorded),
    ///         kInvalidFile (foreign, newer, damaged, its end missing, without calibration or
    ///         frames). The message says which check failed.
    static Result<std::unique_ptr<RecordingReader>> open(
        const std::string& path, const RecordingReaderOptions& options = {});
    ~RecordingReader();
    RecordingReader(const RecordingReader&) = delete;
    RecordingReader& operator=(const RecordingReader&) = delete;

    const std::string& path() const;
    int formatVersion() const;  ///< 1000 * major + minor
    std::int64_t fileBytes() const;
    bool wasRepaired() const;  ///< left by a killed recorder, repaired just now
    const StreamInfo& stream() const;
    const CameraInfo& camera() const;
    const StereoCalibration& calibration() const;  ///< width 0: none

    int frameCount() const;
    /// Time stamp of a frame [ns]; index in [0, frameCount()).
    std::int64_t timeNs(int index) const;

    /// Reads a frame and the inertial samples since the frame before.
    /// @return kNoNewFrame for a damaged frame (wrong checksum, impossible values), counted;
    ///         kInvalidArgument for an index out of range
    Status read(int index, RawFrame& frame);

    /// Damaged frames met so far.
    std::int64_t damagedFrames() const;

    /// Inertial samples with from_ns < t_ns <= to_ns, in order of time, at most `limit`.
    std::vector<ImuSample> imuBetween(std::int64_t from_ns, std::int64_t to_ns,
                                      std::size_t limit = 100000);
    std::int64_t imuSampleCount();
    std::vector<DropRecord> drops();
    std::vector<ClockPair> clock();
    std::vector<std::pair<std::string, std::string>> settings();

private:
    RecordingReader();
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kova::camera
