#include "bench/detection/detection_bench.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <thread>
#include <utility>

#include "bench/detection/drive_cache.h"
#include "bench/detection/explain.h"
#include "camera/base/parallel.h"
#include "camera/detection/stixel_support.h"
#include "camera/pipeline/pipeline.h"
#include "camera/simulation/sequence.h"

namespace kova::bench {

namespace {

using camera::Status;
using camera::WorkMode;

constexpr int kWarmUp = 2;
constexpr double kHeightsMm[] = {400, 600, 1200};

/// Scenes with a question in common.
struct Group {
    const char* name;
    const char* scene;
    bool own_height = false;            ///< the scene's camera height means something
    double max_tilt = 0, max_roll = 0;  ///< drawn from 0 to there where not 0 [degrees]
    bool imu = false;
    double latest_start_s = 0;  ///< a drive begins at a time drawn from 0 to there
};

constexpr Group kGroups[] = {
    {"floor", "floor"},
    {"room", "room"},
    {"corridor", "corridor"},
    {"street", "street"},
    {"ramp_up", "ramp_up"},
    {"ramp_down", "ramp_down"},
    {"cross_slope", "cross_slope"},
    {"kerb", "kerb"},
    {"stairs", "stairs", true},
    {"table_edge", "table_edge", true},
    {"objects", "objects"},
    {"posts", "posts"},
    {"overhang", "overhang"},
    // From 2 m to 0.2 m takes 5.7 s; the drives of a group cover that together.
    {"approach", "approach", true, 0, 0, false, 5.3},
    {"mirror", "mirror"},
    {"textureless", "textureless"},
    {"low_light", "low_light"},
    {"vibration", "vibration"},
    {"tilt", "objects", false, 20, 0},
    {"roll", "objects", false, 0, 10},
    {"roll, IMU", "objects", false, 0, 10, true},
};

/// A pipeline with its own memory of the drive.
struct Lane {
    const char* name;
    WorkMode mode;
    std::unique_ptr<camera::Pipeline> pipeline;
};

void toFindings(const camera::DetectionFrame& frame, Findings& out) {
    out.has_ground = frame.ground.state != camera::GroundState::kLost;
    out.ground = frame.ground.model;
    out.obstacles.clear();
    for (const camera::Stixel& s : frame.stixels)
        if (s.confirmed)
            out.obstacles.push_back({s.x_begin, s.x_end, s.disparity, s.too_near});
    out.ground_map = frame.ground_map.clone();
    out.states.assign(static_cast<std::size_t>(frame.width), camera::ColumnState::kUnknown);
    for (const camera::ColumnRange& c : frame.columns)
        std::fill(out.states.begin() + c.x_begin, out.states.begin() + c.x_end, c.state);
}

/// What came of one drive: the scores of fast, medium and the plain detector.
struct DriveResult {
    Status status;
    Scores scores[3];
    std::string explained;
    std::vector<StixelSample> samples;
    int frames = 0;  ///< that have samples
};

class Drive {
public:
    Drive(const Group& group, const DetectionBenchOptions& options)
        : group_(group), options_(options) {
        lanes_[0].name = "fast", lanes_[0].mode = WorkMode::kFast;
        lanes_[1].name = "medium", lanes_[1].mode = WorkMode::kMedium;
    }

    Status run(std::uint32_t seed, DriveResult& result) {
        seed_ = seed;
        camera::SceneOptions scene_options;
        scene_options.texture_scale = options_.texture;
        if (!group_.own_height) {
            scene_options.camera_height_mm = std::isnan(options_.camera_height_mm)
                                                 ? kHeightsMm[seed % 3]
                                                 : options_.camera_height_mm;
            scene_options.tilt_deg = options_.tilt_deg;
        }
        const double share = seed * 0.618034 - static_cast<int>(seed * 0.618034);
        if (group_.max_tilt > 0)
            scene_options.tilt_deg = share * group_.max_tilt;
        if (group_.max_roll > 0)
            scene_options.roll_deg = share * group_.max_roll * (seed % 2 ? 1 : -1);
        auto scene = camera::makeScene(group_.scene, seed, scene_options);
        if (!scene.ok())
            return scene.status();
        camera::RigOptions rig;
        rig.width = options_.width;
        rig.height = options_.height;
        rig.seed = seed;
        rig.noise_scale = options_.noise;
        rig.baseline_mm = options_.baseline_mm;
        camera::SimulatedSequenceOptions sequence_options;
        sequence_options.start_s = share * group_.latest_start_s;
        camera::SimulatedSequence sequence(
            camera::Renderer(std::move(scene.value()), camera::makeRig(rig)), sequence_options);
        const camera::StereoCalibration& c = sequence.calibration();
        geometry_ = {c.width,   c.height,  c.left.fx,  c.left.fy,
                     c.left.cx, c.left.cy, c.right.cx, c.baselineMm()};
        // As a camera that was just opened.
        const camera::DistanceRange range(geometry_);
        search_ = camera::searchRange(geometry_, range.minMm(), range.maxMm());
        for (Lane& lane : lanes_) {
            Status status;
            lane.pipeline = camera::Pipeline::make(c, status);
            if (!lane.pipeline)
                return status;
        }
        decoder_ = std::make_unique<camera::FrameDecoder>(sequence.stream());
        char about[256];
        std::snprintf(about, sizeof about,
                      "%s seed %u %dx%d frames %d noise %g texture %g h %g t %g r %g", group_.scene,
                      seed, options_.width, options_.height, options_.frames, options_.noise,
                      options_.texture, scene_options.camera_height_mm, scene_options.tilt_deg,
                      scene_options.roll_deg);
        std::string key = about;
        if (options_.baseline_mm != DetectionBenchOptions().baseline_mm)
            key += " baseline " + std::to_string(options_.baseline_mm);
        if (sequence_options.start_s > 0)
            key += " from " + std::to_string(sequence_options.start_s);
        const DriveCache cache(options_.cache);
        std::vector<DriveFrame> kept;
        const bool known = cache.load(key, kept);
        if (!known)
            kept.resize(options_.cache.empty() ? 1 : static_cast<std::size_t>(options_.frames));
        for (int i = 0; i < options_.frames; ++i) {
            DriveFrame& frame = kept[kept.size() == 1 ? 0 : static_cast<std::size_t>(i)];
            if (!known)
                if (Status s = sequence.next(frame.raw, i < kWarmUp ? nullptr : &frame.truth);
                    !s.ok())
                    return s;
            if (Status s = detect(frame.raw); !s.ok())
                return s;
            where_ =
                std::string(group_.name) + " " + std::to_string(seed) + "/" + std::to_string(i);
            if (i >= kWarmUp)
                judge(frame.raw, frame.truth, sequence.scene(), result);
        }
        for (Scores& scores : result.scores) scores.closeDrive();
        if (!known)
            cache.store(key, kept);
        return {};
    }

private:
    Status detect(const camera::RawFrame& raw) {
        if (Status s = decoder_->decode(raw, frame_.pair); !s.ok())
            return s;
        frame_.t_ns = raw.t_ns;
        frame_.imu = raw.imu;
        frame_.position = static_cast<int>(raw.sequence);
        for (Lane& lane : lanes_) {
            camera::PipelineSettings settings;
            settings.work_mode = lane.mode;
            settings.distance = camera::DistanceRange(geometry_);
            settings.align_rows = options_.align_rows;
            settings.detection.use_imu = group_.imu;
            if (Status s = lane.pipeline->process(frame_, settings); !s.ok())
                return s;
        }
        return {};
    }

    void judge(const camera::RawFrame& raw, const camera::FrameTruth& truth,
               const camera::Scene& scene, DriveResult& result) {
        const double t_s = static_cast<double>(raw.t_ns) * 1e-9 + 0.5e-6 * raw.exposure_us;
        judgeTruth(truth, scene, t_s, geometry_, frame_.pair.left.view(), truth_);
        const int column_px = lanes_[0].pipeline->detection().column_px;
        for (int i = 0; i < 2; ++i) {
            const camera::DetectionFrame& frame = lanes_[i].pipeline->detection();
            toFindings(frame, findings_);
            score(findings_, truth_, geometry_, search_.max, column_px, result.scores[i]);
            if (options_.fit)
                collect(lanes_[i], result);
            if (options_.explain)
                result.explained +=
                    explain(where_ + " " + lanes_[i].name, frame, lanes_[i].pipeline->disparity(),
                            findings_, truth_, search_.max);
        }
        if (!options_.plain)
            return;
        detectPlainly(frame_.pair.left.view(), frame_.pair.right.view(), geometry_, search_.max,
                      findings_);
        score(findings_, truth_, geometry_, search_.max, column_px, result.scores[2]);
    }

    void collect(const Lane& lane, DriveResult& result) const {
        std::vector<StixelSample> samples;
        std::vector<FoundColumn> columns;
        for (const camera::StixelCandidate& one : lane.pipeline->detector().candidates()) {
            if (!camera::isJudged(one))
                continue;
            const camera::Stixel& s = one.stixel;
            columns.push_back({s.x_begin, s.x_end, s.disparity, s.too_near});
            StixelSample sample;
            sample.candidate = one;
            sample.frame = result.frames;
            sample.seed = seed_;
            sample.fast = lane.mode == WorkMode::kFast;
            samples.push_back(sample);
        }
        const int column_px = lane.pipeline->detection().column_px;
        const std::vector<bool> wrong = areFalse(columns, truth_, search_.max, column_px, false);
        for (std::size_t i = 0; i < samples.size(); ++i) samples[i].is_true = !wrong[i];
        weigh(columns, samples);
        // A pavement is better not called an obstacle, its kerb is; but it may be.
        constexpr double kRaised = 0.5;
        const std::vector<bool> sure = areFalse(columns, truth_, search_.max, column_px, true);
        for (std::size_t i = 0; i < samples.size(); ++i)
            if (wrong[i] && !sure[i])
                samples[i].weight *= kRaised;
        result.samples.insert(result.samples.end(), samples.begin(), samples.end());
        ++result.frames;
    }

    /// One for each thing that is judged and for each false alarm, however wide: so many columns of
    /// a near wall would drown the post beside it. Less for what is there but not judged, most of
    /// it for kerbs, over which robots stumble.
    void weigh(const std::vector<FoundColumn>& columns, std::vector<StixelSample>& samples) const {
        constexpr double kNotJudged = 0.2, kKerb = 0.5;
        std::map<std::pair<int, bool>, int> sizes;
        for (const StixelSample& s : samples) ++sizes[{s.candidate.group, s.is_true}];
        for (StixelSample& s : samples)
            s.weight = (!s.is_true         ? 1
                        : s.candidate.edge ? kKerb
                                           : kNotJudged) /
                       sizes[{s.candidate.group, s.is_true}];
        std::vector<std::size_t> seen;
        for (const VisibleObject& object : truth_.objects) {
            if (!object.overhead && !isJudged(object, geometry_, search_.max))
                continue;
            seen.clear();
            for (std::size_t i = 0; i < samples.size(); ++i)
                if (std::any_of(object.columns.begin(), object.columns.end(),
                                [&](const ObjectColumn& c) {
                                    return c.x >= columns[i].x_begin && c.x < columns[i].x_end &&
                                           matches(columns[i], c.nearest, c.farthest);
                                }))
                    seen.push_back(i);
            for (const std::size_t i : seen)
                samples[i].weight += 1 / static_cast<double>(seen.size());
        }
    }

    const Group& group_;
    const DetectionBenchOptions& options_;
    std::uint32_t seed_ = 0;
    std::unique_ptr<camera::FrameDecoder> decoder_;
    camera::DecodedFrame frame_;
    camera::RectifiedGeometry geometry_;
    camera::DisparityRange search_;
    Lane lanes_[2];
    std::string where_;
    SceneTruth truth_;
    Findings findings_;
};

/// The drives of a group, several at a time: much of what a drive costs is done in one thread.
/// Their results do not depend on that and come in the order of the seeds.
std::vector<DriveResult> runDrives(const Group& group, const DetectionBenchOptions& options) {
    std::vector<DriveResult> results(static_cast<std::size_t>(options.seeds));
    std::atomic<int> next = 0, done = 0;
    const auto work = [&] {
        Drive drive(group, options);
        for (int i = next++; i < options.seeds; i = next++) {
            DriveResult& result = results[static_cast<std::size_t>(i)];
            result.status = drive.run(options.seed_base + static_cast<std::uint32_t>(i), result);
            if (const int count = ++done; options.progress)
                std::fprintf(stderr, "%s %d/%d\n", group.name, count, options.seeds);
        }
    };
    std::vector<std::thread> others;
    for (int i = 1; i < std::min(camera::threadCount(), options.seeds); ++i)
        others.emplace_back(work);
    work();
    for (std::thread& thread : others) thread.join();
    return results;
}

}  // namespace

std::vector<std::string> detectionGroups() {
    std::vector<std::string> names;
    for (const Group& group : kGroups) names.emplace_back(group.name);
    return names;
}

Status benchDetection(const DetectionBenchOptions& options, DetectionReport& report) {
    report.options = options;
    static constexpr const char* kDetectors[] = {"fast", "medium", "plain"};
    const std::vector<std::string> known = detectionGroups();
    for (const std::string& name : options.groups)
        if (std::find(known.begin(), known.end(), name) == known.end())
            return {camera::ErrorCode::kInvalidArgument, "unknown group of scenes '" + name + "'"};
    const int detectors = options.plain ? 3 : 2;
    Scores total[3];
    int frames = 0;
    for (const Group& group : kGroups) {
        if (!options.groups.empty() && std::find(options.groups.begin(), options.groups.end(),
                                                 group.name) == options.groups.end())
            continue;
        Scores scores[3];
        for (const DriveResult& result : runDrives(group, options)) {
            if (!result.status.ok())
                return result.status;
            std::fputs(result.explained.c_str(), stderr);
            for (int k = 0; k < detectors; ++k) scores[k].add(result.scores[k]);
            for (StixelSample sample : result.samples) {
                sample.frame += frames;
                report.samples.push_back(sample);
            }
            frames += result.frames;
        }
        for (int k = 0; k < detectors; ++k) {
            report.rows.push_back({group.name, kDetectors[k], scores[k]});
            total[k].add(scores[k]);
        }
    }
    for (int k = 0; k < detectors; ++k) report.rows.push_back({"all", kDetectors[k], total[k]});
    return {};
}

}  // namespace kova::bench
