#include "tools/commands/record_command.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

#include "camera/base/log.h"
#include "camera/pipeline/cameras.h"
#include "tools/camera_choice.h"
#include "tools/interrupt.h"
#include "tools/report.h"

namespace kova::tools {

namespace {

using camera::ErrorCode;
using camera::Status;
using Clock = std::chrono::steady_clock;

/// "12.3 MB/s, 41 min left on the disk"
std::string diskText(std::int64_t bytes, double seconds, const std::string& path) {
    const double rate = seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
    char text[96];
    std::snprintf(text, sizeof text, "%.1f MB/s", rate / 1e6);
    std::string line = text;
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::absolute(path, error).parent_path();
    const std::filesystem::space_info space = std::filesystem::space(folder, error);
    if (!error && rate > 0) {
        std::snprintf(text, sizeof text, ", %.0f min left on the disk",
                      static_cast<double>(space.available) / rate / 60);
        line += text;
    }
    return line;
}

void printCounters(const camera::RecordingProgress& progress, std::int64_t camera_dropped,
                   double seconds, const std::string& path, const char* end) {
    std::fprintf(stderr, "\r%7.1f s  received %lld  written %lld  dropped %lld  %s   %s", seconds,
                 static_cast<long long>(progress.received),
                 static_cast<long long>(progress.written),
                 static_cast<long long>(progress.dropped + camera_dropped),
                 diskText(progress.bytes, seconds, path).c_str(), end);
    std::fflush(stderr);
}

}  // namespace

RecordSummary recordFrom(camera::Source& source, camera::AsyncRecordingWriter& writer,
                         const RecordLimits& limits, const std::string& path, bool counters) {
    RecordSummary summary;
    camera::RawFrame frame;
    std::int64_t first_ns = -1;
    std::int64_t dropped_before = source.droppedFrames();
    const Clock::time_point begin = Clock::now();
    Clock::time_point next_line = begin;
    const auto elapsed = [&] {
        return std::chrono::duration<double>(Clock::now() - begin).count();
    };
    while (!Interrupt::requested()) {
        const Status grabbed = source.grab(frame);
        if (grabbed.ok()) {
            if (first_ns < 0) {
                first_ns = frame.t_ns;
                dropped_before = source.droppedFrames();  // what was lost earlier concerns nobody
            }
            // The frame that ends the time belongs to the next second.
            if (limits.seconds > 0 &&
                static_cast<double>(frame.t_ns - first_ns) >= limits.seconds * 1e9)
                break;
            const std::int64_t dropped = source.droppedFrames();
            if (dropped > dropped_before)
                writer.addDrops(frame.t_ns, dropped - dropped_before, camera::DropCause::kCamera);
            summary.camera_dropped += dropped - dropped_before;
            dropped_before = dropped;
            summary.ended = writer.push(frame);
            if (!summary.ended.ok())
                break;
        } else if (grabbed.code() != ErrorCode::kNoNewFrame) {
            summary.ended = grabbed;
            break;
        }
        const camera::RecordingProgress progress = writer.progress();
        if (limits.megabytes > 0 && progress.bytes >= limits.megabytes * 1000000)
            break;
        if (counters && Clock::now() >= next_line) {
            printCounters(progress, summary.camera_dropped, elapsed(), path, "");
            next_line = Clock::now() + std::chrono::milliseconds(500);
        }
    }
    const double seconds = elapsed();
    if (Status finished = writer.finish(); !finished.ok() && summary.ended.ok())
        summary.ended = finished;
    summary.progress = writer.progress();
    if (counters)
        printCounters(summary.progress, summary.camera_dropped, seconds, path, "\n");
    return summary;
}

void RecordCommand::declare(CLI::App& app) {
    app.add_option("output", output_, "Recording to write (.kova)")->required();
    app.add_option("--camera", camera_, "Number of the camera, see 'kova list'")
        ->capture_default_str()
        ->check(CLI::NonNegativeNumber);
    app.add_option("--mode", mode_, "Resolution and rate, for instance HD720_30FPS");
    app.add_option("--seconds", limits_.seconds, "Stop after this time")
        ->check(CLI::PositiveNumber);
    app.add_option("--megabytes", limits_.megabytes, "Stop at this size")
        ->check(CLI::PositiveNumber);
    app.add_option("--exposure", exposure_ms_, "Exposure time [ms]; automatic when left out")
        ->check(CLI::PositiveNumber);
    app.add_flag("--uncalibrated", uncalibrated_,
                 "Record without a calibration, for instance boards to calibrate from");
    app.add_flag("--force", force_, "Replace an existing file");
    app.add_flag("--quiet", quiet_, "No counters");
}

int RecordCommand::run() {
    const camera::Result<CameraChoice> choice = chooseCamera(camera_, mode_);
    if (!choice.ok())
        return fail(choice.status());
    const bino::ResolutionFpsMode* mode = choice.value().mode;
    auto source = uncalibrated_ ? camera::openUncalibrated(camera_, mode->mode)
                                : camera::openCamera(camera_, mode->mode);
    if (!source.ok())
        return fail(source.status());
    camera::Source& live = *source.value();
    if (live.camera().has_imu) {
        if (Status s = live.startImu(); !s.ok())
            camera::logWarning("record", s.message());
    }
    if (exposure_ms_ > 0) {
        if (Status s = live.setExposureMs(exposure_ms_); !s.ok())
            return fail(s);
    }
    camera::RecordingOptions options;
    options.overwrite = force_;
    options.settings = {{"made_by", "kova record"}, {"mode", mode->name}};
    options.clock_utc_ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
                               std::chrono::system_clock::now().time_since_epoch())
                               .count();
    options.clock_t_ns =
        std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
            .count();
    auto writer = camera::AsyncRecordingWriter::create(output_, live.stream(), live.camera(),
                                                       live.calibration(), options);
    if (!writer.ok())
        return fail(writer.status());

    // What the camera delivered while the file was made is old by now.
    camera::RawFrame old;
    (void)live.grab(old);
    const Interrupt interrupt;
    const bool counters = !quiet_ && ::isatty(STDERR_FILENO) != 0;
    const RecordSummary summary = recordFrom(live, *writer.value(), limits_, output_, counters);
    std::printf("%s: %lld frames, %.1f MB, %lld dropped\n", output_.c_str(),
                static_cast<long long>(summary.progress.written),
                static_cast<double>(summary.progress.bytes) / 1e6,
                static_cast<long long>(summary.progress.dropped + summary.camera_dropped));
    return summary.ended.ok() ? kDone : fail(summary.ended);
}

std::unique_ptr<Command> makeRecordCommand() {
    return std::make_unique<RecordCommand>();
}

}  // namespace kova::tools
