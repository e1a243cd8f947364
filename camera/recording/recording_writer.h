#pragma once

#include <chrono>
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

/// How raw pixels are stored; a camera's JPEG stays as it came.
enum class RecordingCompression { kZstd, kPng, kNone };

struct RecordingOptions {
    RecordingCompression compression = RecordingCompression::kZstd;
    int zstd_level = 1;
    /// Replaces a file of this name instead of refusing.
    bool overwrite = false;
    /// What was written is safe against a crash after this time at the latest.
    std::chrono::milliseconds commit_interval{300};
    /// Free text about how the recording was made, into `settings`.
    std::vector<std::pair<std::string, std::string>> settings;
    /// The same moment on the wall clock (UTC, since 1970) and on the clock of the frames; both 0
    /// when unknown.
    std::int64_t clock_utc_ns = 0;
    std::int64_t clock_t_ns = 0;
};

/// Writes a recording (docs/recording-format.md), in the thread of the caller. Whatever happens,
/// a killed process included, everything committed before can be read: flush() and finish()
/// commit, and so does write() after the commit interval. One thread at a time.
class RecordingWriter {
public:
    /// Makes the file, with camera, calibration and settings in it.
    ///
    /// @param path         a new file; an existing one is refused unless options.overwrite
    /// @param stream       codec kRaw: frames are compressed as the options say. Any other codec:
    ///                     the bytes of the frames are stored untouched.
    /// @param calibration  width 0: none; such a file only replays for calibrating
    /// @return kInvalidArgument (stream), kWriteFailed (exists, folder missing, no permission)
    static Result<std::unique_ptr<RecordingWriter>> create(const std::string& path,
                                                           const StreamInfo& stream,
                                                           const CameraInfo& camera,
                                                           const StereoCalibration& calibration,
                                                           const RecordingOptions& options = {});
    /// Finishes, if finish() was not called.
    ~RecordingWriter();
    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    /// Appends a frame with its inertial samples.
    /// @return kInvalidArgument (size does not fit the stream, time not after the frame before:
    ///         nothing is written, the recording goes on), kWriteFailed (for good)
    Status write(const RawFrame& frame);

    /// Appends inertial samples that belong to no frame, for instance after the last one.
    Status writeImu(const std::vector<ImuSample>& samples);

    /// Notes that `count` frames are missing before the time t_ns.
    Status addDrops(std::int64_t t_ns, std::int64_t count, DropCause cause);

    /// Makes everything written so far safe.
    Status flush();

    /// Makes everything safe and closes the file. Frames cannot be written afterwards.
    Status finish();

    std::int64_t frames() const;           ///< written
    std::int64_t committedFrames() const;  ///< safe on the disk
    std::int64_t bytes() const;            ///< of the pictures, as stored

private:
    RecordingWriter();
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kova::camera
