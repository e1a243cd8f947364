#include "tools/commands/trim_command.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <limits>

#include "camera/recording/recording_reader.h"
#include "camera/recording/recording_writer.h"
#include "tools/progress.h"
#include "tools/report.h"

namespace kova::tools {

namespace {

class TrimCommand : public Command {
public:
    std::string name() const override { return "trim"; }
    std::string description() const override {
        return "Copy a part of a recording, its pictures byte for byte";
    }

    void declare(CLI::App& app) override {
        app.add_option("file", file_, "Recording")->required();
        app.add_option("output", output_, "Recording to write")->required();
        auto* frames =
            app.add_option("--frames", frames_,
                           "FIRST:LAST, counted from 0, both included; either may be left out")
                ->check([](const std::string& text) {
                    return parseFrameRange(text) ? std::string()
                                                 : "'" + text + "' is not FIRST:LAST";
                });
        app.add_option("--from", from_s_, "Seconds after the first frame")->excludes(frames);
        app.add_option("--to", to_s_, "Seconds after the first frame")->excludes(frames);
        app.add_flag("-f,--force", force_, "Replace an existing recording");
    }

    int run() override {
        camera::RecordingReaderOptions options;
        options.without_calibration = true;
        const auto opened = camera::RecordingReader::open(file_, options);
        if (!opened.ok())
            return fail(opened.status());
        camera::RecordingReader& reader = *opened.value();
        std::error_code error;
        if (std::filesystem::equivalent(file_, output_, error) && !error)
            return fail({camera::ErrorCode::kInvalidArgument,
                         "the output is the recording itself; choose another name"});
        const auto [first, last] = range(reader);
        if (first > last)
            return fail({camera::ErrorCode::kInvalidArgument,
                         "no frame of " + file_ + " is in that range; it has " +
                             std::to_string(reader.frameCount()) + " frames"});
        return copy(reader, first, last);
    }

private:
    /// First and last index of the frames asked for; first > last when there is none.
    std::pair<int, int> range(camera::RecordingReader& reader) const {
        const int n = reader.frameCount();
        if (const auto asked = parseFrameRange(frames_))
            return {static_cast<int>(std::min<std::int64_t>(asked->first, n)),
                    static_cast<int>(std::min<std::int64_t>(asked->second, n - 1))};
        const auto seconds = [&](int i) {
            return (static_cast<double>(reader.timeNs(i)) - static_cast<double>(reader.timeNs(0))) *
                   1e-9;
        };
        constexpr double kRounding_s = 1e-6;  // of seconds typed with few digits
        int first = 0;
        while (first < n && seconds(first) < from_s_ - kRounding_s) ++first;
        int last = n - 1;
        while (last >= 0 && seconds(last) > to_s_ + kRounding_s) --last;
        return {first, last};
    }

    int copy(camera::RecordingReader& reader, int first, int last) const {
        camera::RecordingOptions options;
        options.overwrite = force_;
        options.compression = camera::RecordingCompression::kNone;  // as it is
        options.settings = reader.settings();
        options.settings.emplace_back("trim.frames",
                                      std::to_string(first) + ":" + std::to_string(last));
        const auto clock = reader.clock();
        if (!clock.empty()) {
            options.clock_utc_ns = clock[0].utc_ns;
            options.clock_t_ns = clock[0].t_ns;
        }
        auto writer = camera::RecordingWriter::create(output_, reader.stream(), reader.camera(),
                                                      reader.calibration(), options);
        if (!writer.ok())
            return fail(writer.status());
        Progress progress("Copying");
        camera::RawFrame frame;
        for (int i = first; i <= last; ++i) {
            progress.update(i - first, last - first + 1);
            camera::Status status = reader.read(i, frame);
            if (status.code() == camera::ErrorCode::kNoNewFrame)
                status = writer.value()->addDrops(reader.timeNs(i), 1, camera::DropCause::kDamaged);
            else if (status.ok())
                status = writer.value()->write(frame);
            if (!status.ok())
                return fail(status);
        }
        for (const camera::DropRecord& drop : reader.drops())
            if (drop.t_ns > reader.timeNs(first) && drop.t_ns <= reader.timeNs(last)) {
                const camera::DropCause cause = drop.cause == "camera" ? camera::DropCause::kCamera
                                                : drop.cause == "damaged"
                                                    ? camera::DropCause::kDamaged
                                                    : camera::DropCause::kRecorder;
                if (auto s = writer.value()->addDrops(drop.t_ns, drop.count, cause); !s.ok())
                    return fail(s);
            }
        if (auto s = writer.value()->finish(); !s.ok())
            return fail(s);
        progress.finish();
        std::printf("%s: %lld frames, %s\n", output_.c_str(),
                    static_cast<long long>(writer.value()->frames()),
                    sizeText(writer.value()->bytes()).c_str());
        return kDone;
    }

    std::string file_, output_, frames_;
    double from_s_ = 0;
    double to_s_ = std::numeric_limits<double>::infinity();
    bool force_ = false;
};

}  // namespace

std::unique_ptr<Command> makeTrimCommand() {
    return std::make_unique<TrimCommand>();
}

}  // namespace kova::tools
