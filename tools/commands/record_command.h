#pragma once

#include <memory>

#include "camera/recording/async_recording_writer.h"
#include "camera/sources/source.h"
#include "tools/command.h"

namespace kova::tools {

/// When a recording ends by itself; 0: never.
struct RecordLimits {
    double seconds = 0;          ///< of camera time
    std::int64_t megabytes = 0;  ///< of written pictures, 10^6 bytes each
};

/// What recordFrom() did.
struct RecordSummary {
    camera::RecordingProgress progress;
    std::int64_t camera_dropped = 0;  ///< lost before they reached the recorder
    camera::Status ended;             ///< why, when not by a limit or Ctrl-C
};

/// Takes frames from a live source and records them until a limit, Ctrl-C, or the end of the
/// source. With `counters`, a line on standard error is rewritten twice a second.
RecordSummary recordFrom(camera::Source& source, camera::AsyncRecordingWriter& writer,
                         const RecordLimits& limits, const std::string& path, bool counters);

/// `kova record`: records a live or simulated camera.
class RecordCommand : public Command {
public:
    std::string name() const override { return "record"; }
    std::string description() const override { return "Record an attached camera"; }
    void declare(CLI::App& app) override;
    int run() override;

private:
    int camera_ = 0;
    std::string mode_;
    std::string output_;
    RecordLimits limits_;
    double exposure_ms_ = 0;
    bool uncalibrated_ = false;
    bool force_ = false;
    bool quiet_ = false;
};

std::unique_ptr<Command> makeRecordCommand();

}  // namespace kova::tools
