#include "bench/speed/pipeline_bench.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <utility>

#include "camera/base/parallel.h"
#include "camera/pipeline/frame_feeder.h"
#include "camera/pipeline/picture_store.h"
#include "camera/pipeline/pipeline.h"
#include "camera/recording/replay_source.h"

namespace kova::bench {

namespace {

using camera::Result;
using camera::Status;
using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// A replay with the pictures that the window asks for.
class Replay {
public:
    static Result<std::unique_ptr<Replay>> open(const std::string& path, camera::WorkMode mode) {
        auto source = camera::ReplaySource::open(path);
        if (!source.ok())
            return source.status();
        source.value()->setPaced(false);
        Status status;
        auto pipeline = camera::Pipeline::make(source.value()->calibration(), status);
        if (!pipeline)
            return status;
        return std::unique_ptr<Replay>(
            new Replay(std::move(source.value()), std::move(pipeline), mode));
    }

    camera::ReplaySource& source() { return *source_; }
    camera::Pipeline& pipeline() { return *pipeline_; }
    const camera::PipelineSettings& settings() const { return settings_; }

    /// Gives the source away; the rest stays.
    std::unique_ptr<camera::ReplaySource> takeSource() { return std::move(source_); }

    void newFrame() { pictures_.nextFrame(); }

    void retrieveView(bino::OBSTACLE_VIEW_TYPE type) {
        if (!pictures_.isCurrent(type))
            camera::paintImageView(type, pipeline_->viewInput(), pipeline_->detection(),
                                   pictures_.picture(type, pictures_.begin(type)));
    }

    void retrieveCloud() {
        constexpr int kCloud = camera::PictureStore::kCloud;
        if (!pictures_.isCurrent(kCloud))
            pipeline_->points(reinterpret_cast<float*>(pictures_.begin(kCloud)));
    }

private:
    Replay(std::unique_ptr<camera::ReplaySource> source, std::unique_ptr<camera::Pipeline> pipeline,
           camera::WorkMode mode)
        : source_(std::move(source)),
          pipeline_(std::move(pipeline)),
          pictures_(pipeline_->geometry().width, pipeline_->geometry().height,
                    camera::topViewWidth(), camera::topViewHeight()) {
        settings_.work_mode = mode;
        settings_.distance = camera::DistanceRange(pipeline_->geometry());
    }

    std::unique_ptr<camera::ReplaySource> source_;
    std::unique_ptr<camera::Pipeline> pipeline_;
    camera::PictureStore pictures_;
    camera::PipelineSettings settings_;
};

/// The whole, as the camera runs it.
Status timeWhole(Replay& replay, int frames, PipelineReport& report) {
    camera::FrameFeeder feeder(replay.takeSource());
    camera::DecodedFrame frame;
    Clock::time_point start;
    int done = -1;  // the first frame allocates
    while (done < frames) {
        const Status taken = feeder.take(frame);
        if (taken.code() == camera::ErrorCode::kNoNewFrame)
            continue;
        if (!taken.ok())
            break;
        if (Status s = replay.pipeline().process(frame, replay.settings()); !s.ok())
            return s;
        replay.newFrame();
        replay.retrieveView(bino::OBSTACLE_VIEW_TYPE_GROUND);
        replay.retrieveView(bino::OBSTACLE_VIEW_TYPE_IMAGE_STIXELS);
        replay.retrieveCloud();
        replay.retrieveView(bino::OBSTACLE_VIEW_TYPE_IMAGE_STIXELS);
        if (++done == 0)
            start = Clock::now();
    }
    if (done < 1)
        return {camera::ErrorCode::kInvalidArgument,
                "the recording has less than two frames; record a longer one"};
    report.frames = done;
    report.frames_per_second = done / (millisecondsSince(start) / 1000);
    return {};
}

/// One stage after the other.
Status timeStages(Replay& replay, int frames, PipelineReport& report) {
    constexpr const char* kNames[] = {"read and decode", "rectify and match", "the same and detect",
                                      "view 1, ground",  "view 4, stixels",   "point cloud",
                                      "matcher alone"};
    constexpr std::size_t kCount = std::size(kNames);
    std::vector<double> times[kCount], detection[camera::kDetectionStages + 1];
    camera::Pipeline& pipeline = replay.pipeline();
    const camera::PipelineSettings with = replay.settings();
    camera::PipelineSettings without = with;
    without.detect = false;
    const camera::DisparityRange range =
        camera::searchRange(pipeline.geometry(), with.distance.minMm(), with.distance.maxMm());
    camera::MatchParameters parameters;
    parameters.work_mode = with.work_mode;
    parameters.min_disparity = range.min;
    parameters.max_disparity = range.max;
    const auto matcher = camera::makeMatcher();
    camera::DisparityMap map;
    camera::FrameDecoder decoder(replay.source().stream());
    camera::RawFrame raw;
    camera::DecodedFrame frame;
    Status status;
    const auto time = [&](std::size_t stage, const std::function<Status()>& body) {
        if (!status.ok())
            return;
        const auto start = Clock::now();
        status = body();
        times[stage].push_back(millisecondsSince(start));
    };
    for (int i = 0; i < frames && i < replay.source().frameCount() && status.ok(); ++i) {
        time(0, [&] {
            const Status s = replay.source().grab(raw);
            return s.ok() ? decoder.decode(raw, frame.pair) : s;
        });
        if (status.code() == camera::ErrorCode::kNoNewFrame) {
            status = {};
            times[0].pop_back();
            continue;
        }
        frame.t_ns = raw.t_ns;
        frame.position = i;
        time(1, [&] { return pipeline.process(frame, without); });
        time(2, [&] { return pipeline.process(frame, with); });
        double sum = 0;
        for (int s = 0; s < camera::kDetectionStages; ++s) {
            detection[s].push_back(pipeline.detector().times()[s]);
            sum += detection[s].back();
        }
        detection[camera::kDetectionStages].push_back(sum);
        replay.newFrame();
        time(3, [&] { return replay.retrieveView(bino::OBSTACLE_VIEW_TYPE_GROUND), Status(); });
        time(4,
             [&] { return replay.retrieveView(bino::OBSTACLE_VIEW_TYPE_IMAGE_STIXELS), Status(); });
        time(5, [&] { return replay.retrieveCloud(), Status(); });
        time(6, [&] { return matcher->match(pipeline.left(), pipeline.right(), parameters, map); });
    }
    if (!status.ok())
        return status;
    const auto add = [&](const char* name, std::vector<double>& list) {
        if (list.empty())
            return;
        std::sort(list.begin(), list.end());
        report.stages.push_back({name, list.front(), list[list.size() / 2]});
    };
    for (std::size_t i = 0; i < kCount; ++i) add(kNames[i], times[i]);
    for (int s = 0; s < camera::kDetectionStages; ++s)
        add(camera::stageName(static_cast<camera::DetectionStage>(s)), detection[s]);
    add("all of detection", detection[camera::kDetectionStages]);
    return {};
}

}  // namespace

Result<PipelineReport> benchPipeline(const std::string& recording, camera::WorkMode mode,
                                     int threads, int frames) {
    PipelineReport report;
    report.threads = threads;
    camera::setThreadCount(threads);
    for (const bool whole : {true, false}) {
        auto opened = Replay::open(recording, mode);
        if (!opened.ok())
            return opened.status();
        Replay& replay = *opened.value();
        report.width = replay.pipeline().geometry().width;
        report.height = replay.pipeline().geometry().height;
        const Status status =
            whole ? timeWhole(replay, frames, report) : timeStages(replay, frames, report);
        if (!status.ok())
            return status;
    }
    camera::setThreadCount(0);
    return report;
}

std::string pipelineTable(const PipelineReport& report) {
    char text[256];
    std::snprintf(text, sizeof text,
                  "%dx%d, %d threads, %d frames: %.1f frames per second, decoding, detection, "
                  "views 1 and 4 and the point cloud included.\n\n",
                  report.width, report.height, report.threads, report.frames,
                  report.frames_per_second);
    std::string table = text;
    table +=
        "| alone               | least ms | median ms "
        "|\n|---------------------|----------|-----------|\n";
    for (const PipelineReport::Stage& s : report.stages) {
        std::snprintf(text, sizeof text, "| %-19s | %8.1f | %9.1f |\n", s.name.c_str(), s.least_ms,
                      s.median_ms);
        table += text;
    }
    return table;
}

std::string pipelineJson(const PipelineReport& report) {
    nlohmann::json json{{"width", report.width},
                        {"height", report.height},
                        {"threads", report.threads},
                        {"frames", report.frames},
                        {"frames_per_second", report.frames_per_second}};
    for (const PipelineReport::Stage& s : report.stages)
        json["stages"].push_back(
            {{"name", s.name}, {"least_ms", s.least_ms}, {"median_ms", s.median_ms}});
    return json.dump(2) + "\n";
}

}  // namespace kova::bench
