#include "bench/rectification/rows_bench.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "camera/pipeline/pipeline.h"
#include "camera/simulation/sequence.h"
#include "camera/sources/decode.h"

namespace kova::bench {

namespace {

using camera::Status;

constexpr int kShown[] = {0, 1, 2, 4, 8, 16, 31};

/// Errors of rows over the picture [px].
struct Errors {
    double squares = 0, largest = 0;
    int count = 0;
    void add(double error) {
        squares += error * error;
        largest = std::max(largest, std::abs(error));
        ++count;
    }
    void add(const Errors& other) {
        squares += other.squares;
        largest = std::max(largest, other.largest);
        count += other.count;
    }
    double rms() const { return count > 0 ? std::sqrt(squares / count) : 0; }
};

/// How far the right eye's rows are off the left one's, of points on a grid of the left picture 3 m
/// away, after a correction.
Errors rowErrors(const camera::SimulatedRig& rig, const camera::RowOffset& correction) {
    const camera::StereoCalibration& c = rig.rendered;
    constexpr double kDepthMm = 3000;
    Errors errors;
    for (int y = 10; y < rig.height; y += 20)
        for (int x = 10; x < rig.width; x += 20) {
            const auto ray = camera::directionOfPixel(c.left, x, y);
            const double p[3] = {ray[0] * kDepthMm, ray[1] * kDepthMm, kDepthMm};
            double q[3];
            for (int i = 0; i < 3; ++i)
                q[i] = c.right_from_left[3 * i] * p[0] + c.right_from_left[3 * i + 1] * p[1] +
                       c.right_from_left[3 * i + 2] * p[2] + c.translation_mm[i];
            const auto seen = camera::pixelOfDirection(c.right, q[0] / q[2], q[1] / q[2]);
            if (seen[0] >= 0 && seen[0] < rig.width)
                errors.add(seen[1] - y - correction.at(seen[0], y));
        }
    return errors;
}

}  // namespace

Status benchRows(const RowsBenchOptions& options) {
    std::printf("rows apart, px rms (largest), %dx%d, mode %d\n%-12s", options.width,
                options.height, static_cast<int>(options.mode), "scene");
    for (const int frame : kShown)
        if (frame < options.frames)
            std::printf("  frame %-6d", frame);
    std::printf("  changes\n");
    std::vector<Errors> all(static_cast<std::size_t>(options.frames));
    for (const std::string& name : options.scenes) {
        std::vector<Errors> errors(static_cast<std::size_t>(options.frames));
        int changes = 0;
        for (int i = 0; i < options.seeds; ++i) {
            const std::uint32_t seed = options.seed_base + static_cast<std::uint32_t>(i);
            auto scene = camera::makeScene(name, seed);
            if (!scene.ok())
                return scene.status();
            camera::RigOptions rig_options;
            rig_options.width = options.width;
            rig_options.height = options.height;
            rig_options.seed = seed;
            const camera::SimulatedRig rig = camera::makeRig(rig_options);
            camera::SimulatedSequence sequence(camera::Renderer(std::move(scene.value()), rig), {});
            Status status;
            const auto pipeline = camera::Pipeline::make(sequence.calibration(), status);
            if (!pipeline)
                return status;
            camera::PipelineSettings settings;
            settings.work_mode = options.mode;
            settings.distance = camera::DistanceRange(pipeline->geometry());
            settings.detect = false;
            camera::FrameDecoder decoder(sequence.stream());
            camera::RawFrame raw;
            camera::DecodedFrame frame;
            camera::RowOffset last(pipeline->geometry());
            for (int k = 0; k < options.frames; ++k) {
                if (Status s = sequence.next(raw); !s.ok())
                    return s;
                if (Status s = decoder.decode(raw, frame.pair); !s.ok())
                    return s;
                if (Status s = pipeline->process(frame, settings); !s.ok())
                    return s;
                const camera::RowOffset& now = pipeline->rowOffset();
                changes += now.largestDifference(last) > 0;
                last = now;
                errors[static_cast<std::size_t>(k)].add(rowErrors(rig, now));
            }
        }
        std::printf("%-12s", name.c_str());
        for (const int frame : kShown)
            if (frame < options.frames) {
                const Errors& e = errors[static_cast<std::size_t>(frame)];
                std::printf("  %.3f (%.2f)", e.rms(), e.largest);
            }
        std::printf("  %.1f\n", static_cast<double>(changes) / options.seeds);
        for (std::size_t k = 0; k < all.size(); ++k) all[k].add(errors[k]);
    }
    std::printf("%-12s", "all");
    for (const int frame : kShown)
        if (frame < options.frames) {
            const Errors& e = all[static_cast<std::size_t>(frame)];
            std::printf("  %.3f (%.2f)", e.rms(), e.largest);
        }
    std::printf("\n");
    return {};
}

}  // namespace kova::bench
