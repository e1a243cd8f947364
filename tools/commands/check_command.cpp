#include "tools/commands/check_command.h"

#include <cinttypes>
#include <cstdio>

#include "camera/recording/recording_reader.h"
#include "camera/sources/decode.h"
#include "tools/progress.h"
#include "tools/report.h"

namespace kova::tools {

namespace {

/// What walking through a recording found.
struct Findings {
    std::int64_t unreadable = 0;
    std::int64_t undecodable = 0;
    std::int64_t out_of_order = 0;
    std::int64_t gaps = 0;
    double longest_gap_s = 0;
    std::int64_t lost_by_sequence = 0;
    std::int64_t imu_samples = 0;

    bool damaged() const { return unreadable > 0 || undecodable > 0 || out_of_order > 0; }
};

class CheckCommand : public Command {
public:
    std::string name() const override { return "check"; }
    std::string description() const override {
        return "Walk through a recording: checksums, decoding, gaps, order";
    }

    void declare(CLI::App& app) override {
        app.add_option("file", file_, "Recording")->required();
        app.add_option("--list", list_, "Name at most this many faults one by one")
            ->check(CLI::NonNegativeNumber);
    }

    int run() override {
        camera::RecordingReaderOptions options;
        options.without_calibration = true;
        const auto opened = camera::RecordingReader::open(file_, options);
        if (!opened.ok())
            return fail(opened.status());
        const Findings f = walk(*opened.value());
        print(*opened.value(), f);
        return f.damaged() ? kFailed : kDone;
    }

private:
    void name(int frame, const std::string& fault) {
        if (listed_++ < list_)
            std::printf("frame %d: %s\n", frame, fault.c_str());
    }

    Findings walk(camera::RecordingReader& reader) {
        Findings f;
        camera::FrameDecoder decoder(reader.stream());
        camera::RawFrame frame;
        camera::StereoPair pair;
        Progress progress("Checking");
        const double usual_s =
            reader.stream().nominal_fps > 0 ? 1 / reader.stream().nominal_fps : 0;
        std::int64_t sequence = 0;
        bool sequence_known = false;
        for (int i = 0; i < reader.frameCount(); ++i) {
            progress.update(i, reader.frameCount());
            if (i > 0)
                judgeTimes(i, reader.timeNs(i - 1), reader.timeNs(i), usual_s, f);
            if (const camera::Status s = reader.read(i, frame); !s.ok()) {
                ++f.unreadable;
                name(i, s.message());
                sequence_known = false;
                continue;
            }
            if (sequence_known && frame.sequence > sequence + 1)
                f.lost_by_sequence += frame.sequence - sequence - 1;
            sequence = frame.sequence;
            sequence_known = true;
            if (const camera::Status s = decoder.decode(frame, pair); !s.ok()) {
                ++f.undecodable;
                name(i, s.message());
            }
        }
        f.imu_samples = reader.imuSampleCount();
        return f;
    }

    void judgeTimes(int i, std::int64_t before_ns, std::int64_t t_ns, double usual_s, Findings& f) {
        if (t_ns <= before_ns) {
            ++f.out_of_order;
            name(i, "its time is not after the frame before");
            return;
        }
        const double gap_s = (static_cast<double>(t_ns) - static_cast<double>(before_ns)) * 1e-9;
        if (usual_s > 0 && gap_s > 1.5 * usual_s) {
            ++f.gaps;
            char fault[64];
            std::snprintf(fault, sizeof fault, "gap of %.3f s before it", gap_s);
            name(i, fault);
        }
        f.longest_gap_s = std::max(f.longest_gap_s, gap_s);
    }

    static void print(camera::RecordingReader& reader, const Findings& f) {
        std::int64_t dropped = 0;
        for (const camera::DropRecord& drop : reader.drops()) dropped += drop.count;
        std::printf("Frames       %d\n", reader.frameCount());
        std::printf("Unreadable   %" PRId64 "\n", f.unreadable);
        std::printf("Undecodable  %" PRId64 "\n", f.undecodable);
        std::printf("Out of order %" PRId64 "\n", f.out_of_order);
        std::printf("Gaps         %" PRId64 ", the longest distance %.3f s\n", f.gaps,
                    f.longest_gap_s);
        std::printf("Lost         %" PRId64 " by the camera's count, %" PRId64 " noted as drops\n",
                    f.lost_by_sequence, dropped);
        std::printf("IMU          %" PRId64 " samples\n", f.imu_samples);
        std::printf("Result       %s\n", f.damaged() ? "damaged" : "good");
    }

    std::string file_;
    int list_ = 20;
    int listed_ = 0;
};

}  // namespace

std::unique_ptr<Command> makeCheckCommand() {
    return std::make_unique<CheckCommand>();
}

}  // namespace kova::tools
