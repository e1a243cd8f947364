#include "bench/depth/simulator_bench.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

#include "bench/depth/baseline.h"
#include "bench/depth/metrics.h"
#include "bench/detection/scene_truth.h"
#include "camera/matching/matcher.h"
#include "camera/simulation/sequence.h"

namespace kova::bench {

namespace {

using camera::DisparityMap;
using camera::ImageView;
using camera::Status;
using camera::WorkMode;

/// A second lies between two frames, so that few of them show much of a drive.
struct SceneEntry {
    const char* name;
    int frames;
};
constexpr SceneEntry kScenes[] = {{"demo", 2},        {"room", 2},      {"corridor", 2},
                                  {"street", 2},      {"objects", 2},   {"posts", 2},
                                  {"textureless", 2}, {"low_light", 2}, {"approach", 7}};

constexpr struct {
    WorkMode mode;
    const char* name;
} kModes[] = {{WorkMode::kFast, "fast"}, {WorkMode::kMedium, "medium"}, {WorkMode::kSlow, "slow"}};
constexpr int kMethods = 4;  // the modes and 3WAY

struct Frame {
    ImageView<const std::uint8_t> left, right;
    camera::RectifiedGeometry geometry;
    SceneTruth truth;
};

void judgeNear(const Frame& frame, const DisparityMap& map, int levels, NearErrors& near) {
    for (int y = 0; y < map.disparity.height(); ++y)
        for (int x = 0; x < map.disparity.width(); ++x) {
            const double truth = frame.truth.disparity.at(x, y);
            const std::uint16_t d = map.disparity.at(x, y);
            const bool marked = d == camera::kTooNearDisparity;
            // Between both lies what may be called either.
            if (truth > 0 && truth < levels - 8) {
                ++near.in_reach;
                near.falsely_marked += marked;
            }
            if (truth < levels)
                continue;
            ++near.pixels;
            near.marked += marked;
            if (!camera::isDisparity(d) ||
                std::abs(d / double{camera::kDisparityScale} - truth) <= 1)
                continue;
            ++near.wrong;
            near.confident_wrong += 2 * map.confidence.at(x, y) >= camera::kConfidenceScale ? 1 : 0;
        }
}

void judgeRanges(const Frame& frame, const DisparityMap& map,
                 std::array<RangeErrors, kDistanceRanges>& ranges) {
    camera::Image<std::uint16_t> filled = map.disparity.clone();
    fillRows(filled);
    const camera::RectifiedGeometry& g = frame.geometry;
    const double fb = g.fx * g.baseline_mm;
    const double offset = g.cx_right - g.cx;
    const auto wrong = [&](std::uint16_t d, double z) {
        const double px = d / double{camera::kDisparityScale} + offset;
        return px <= 0 || std::abs(fb / px - z) > 0.05 * z;
    };
    for (int y = 0; y < filled.height(); ++y)
        for (int x = 0; x < filled.width(); ++x) {
            const double truth = frame.truth.disparity.at(x, y);
            if (truth <= 0 || !frame.truth.in_right.at(x, y))
                continue;
            const double z = fb / (truth + offset);
            const auto* end = std::upper_bound(std::begin(kRangeEnds), std::end(kRangeEnds), z);
            if (end == std::begin(kRangeEnds) || end == std::end(kRangeEnds))
                continue;
            RangeErrors& errors = ranges[static_cast<std::size_t>(end - kRangeEnds - 1)];
            const std::uint16_t d = map.disparity.at(x, y);
            ++errors.pixels;
            errors.measured += camera::isDisparity(d);
            errors.wrong += camera::isDisparity(d) && wrong(d, z);
            errors.filled_wrong += wrong(filled.at(x, y), z);
        }
}

class Measurement {
public:
    explicit Measurement(const SimulatorBenchOptions& options) : options_(options) {}

    Status addDrive(const SceneEntry& entry, std::uint32_t seed, SimulatorRow (&rows)[kMethods]) {
        auto scene = camera::makeScene(entry.name, seed);
        if (!scene.ok())
            return scene.status();
        camera::RigOptions rig;
        rig.width = options_.width;
        rig.height = options_.height;
        rig.seed = seed;
        rig.fps = 1;
        camera::SimulatedSequence sequence(
            camera::Renderer(std::move(scene.value()), camera::makeRig(rig)), {});
        const camera::StereoCalibration& c = sequence.calibration();
        Frame frame;
        frame.geometry = {c.width,   c.height,  c.left.fx,  c.left.fy,
                          c.left.cx, c.left.cy, c.right.cx, c.baselineMm()};
        camera::RawFrame raw;
        camera::FrameTruth truth;
        for (int i = 0; i < entry.frames; ++i) {
            if (Status s = sequence.next(raw, &truth); !s.ok())
                return s;
            frame.left = {raw.data.data(), options_.width, options_.height, 2 * options_.width};
            frame.right = frame.left;
            frame.right.data += options_.width;
            const double t_s = static_cast<double>(raw.t_ns) * 1e-9 + 0.5e-6 * raw.exposure_us;
            judgeTruth(truth, sequence.scene(), t_s, frame.geometry, frame.left, frame.truth);
            if (Status s = matchAll(frame, rows); !s.ok())
                return s;
        }
        return {};
    }

private:
    Status matchAll(const Frame& frame, SimulatorRow (&rows)[kMethods]) {
        int method = 0;
        for (const auto& [mode, name] : kModes) {
            camera::MatchParameters parameters;
            parameters.work_mode = mode;
            parameters.max_disparity = options_.levels;
            parameters.borrow = true;
            if (Status s = matcher_->match(frame.left, frame.right, parameters, map_); !s.ok())
                return s;
            judge(frame, rows[method++]);
        }
        matchBaseline(kBaselines[1], frame.left, frame.right, options_.levels, true,
                      map_.disparity);
        // Its disparities have no confidence; all of them count.
        map_.confidence.fill(camera::kConfidenceScale);
        judge(frame, rows[method]);
        return {};
    }

    void judge(const Frame& frame, SimulatorRow& row) const {
        judgeRanges(frame, map_, row.ranges);
        judgeNear(frame, map_, options_.levels, row.near);
    }

    const SimulatorBenchOptions& options_;
    std::unique_ptr<camera::Matcher> matcher_ = camera::makeMatcher();
    DisparityMap map_;
};

void add(const SimulatorRow& row, SimulatorRow& sum) {
    for (std::size_t i = 0; i < row.ranges.size(); ++i) {
        sum.ranges[i].pixels += row.ranges[i].pixels;
        sum.ranges[i].measured += row.ranges[i].measured;
        sum.ranges[i].wrong += row.ranges[i].wrong;
        sum.ranges[i].filled_wrong += row.ranges[i].filled_wrong;
    }
    sum.near.pixels += row.near.pixels;
    sum.near.marked += row.near.marked;
    sum.near.wrong += row.near.wrong;
    sum.near.confident_wrong += row.near.confident_wrong;
    sum.near.in_reach += row.near.in_reach;
    sum.near.falsely_marked += row.near.falsely_marked;
}

}  // namespace

std::vector<std::string> simulatorBenchScenes() {
    std::vector<std::string> names;
    for (const SceneEntry& entry : kScenes) names.emplace_back(entry.name);
    return names;
}

Status benchSimulator(const SimulatorBenchOptions& options, SimulatorReport& report) {
    report.options = options;
    const auto named = [](const char* scene, SimulatorRow(&rows)[kMethods]) {
        for (int i = 0; i < kMethods; ++i) {
            rows[i].scene = scene;
            rows[i].method = i < kMethods - 1 ? kModes[i].name : kBaselines[1].name;
        }
    };
    SimulatorRow total[kMethods];
    named("all", total);
    Measurement measurement(options);
    for (const SceneEntry& entry : kScenes) {
        if (!options.scenes.empty() && std::find(options.scenes.begin(), options.scenes.end(),
                                                 entry.name) == options.scenes.end())
            continue;
        SimulatorRow rows[kMethods];
        named(entry.name, rows);
        for (int i = 0; i < options.seeds; ++i)
            if (Status s = measurement.addDrive(
                    entry, options.seed_base + static_cast<std::uint32_t>(i), rows);
                !s.ok())
                return s;
        for (int i = 0; i < kMethods; ++i) {
            report.rows.push_back(rows[i]);
            add(rows[i], total[i]);
        }
    }
    for (const SimulatorRow& row : total) report.rows.push_back(row);
    return {};
}

}  // namespace kova::bench
