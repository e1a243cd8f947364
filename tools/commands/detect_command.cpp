#include "tools/commands/detect_command.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "camera/pipeline/pipeline.h"
#include "camera/recording/recording_reader.h"
#include "camera/sources/decode.h"
#include "camera/views/views.h"
#include "sdk/modes.h"
#include "tools/detection_json.h"
#include "tools/progress.h"
#include "tools/report.h"

namespace kova::tools {

namespace {

namespace fs = std::filesystem;
using camera::ErrorCode;
using camera::Status;

constexpr const char* kViewFiles[] = {"obstacle",   "ground",        "top_view",
                                      "ground_map", "image_stixels", "stixels"};

/// Writes the six views of a frame.
class ViewWriter {
public:
    explicit ViewWriter(std::string folder) : folder_(std::move(folder)) {}

    Status prepare(bool force) const {
        std::error_code error;
        const fs::path folder = folder_;
        if (fs::exists(folder, error) && !fs::is_directory(folder, error))
            return {ErrorCode::kWriteFailed, folder_ + " is not a folder"};
        if (!force && fs::is_directory(folder, error) && !fs::is_empty(folder, error))
            return {ErrorCode::kWriteFailed,
                    folder_ + " is not empty; choose another folder or give --force"};
        fs::create_directories(folder, error);
        return error ? Status(ErrorCode::kWriteFailed, "cannot make the folder " + folder_)
                     : Status();
    }

    Status write(int index, const camera::Pipeline& pipeline) {
        const camera::DetectionFrame& frame = pipeline.detection();
        for (int type = 0; type < bino::kObstacleViewTypeCount; ++type) {
            Status s;
            if (type == bino::OBSTACLE_VIEW_TYPE_GROUND_MAP) {
                map_.resize(frame.width, frame.height);
                camera::paintGroundMap(frame, map_.view());
                s = save(index, type,
                         cv::Mat(map_.height(), map_.width(), CV_8UC1, map_.data(),
                                 static_cast<std::size_t>(map_.stride())));
            } else {
                if (type == bino::OBSTACLE_VIEW_TYPE_TOP_VIEW) {
                    picture_.resize(camera::topViewWidth(), camera::topViewHeight());
                    camera::paintTopView(frame, picture_.view());
                } else {
                    picture_.resize(frame.width, frame.height);
                    camera::paintImageView(static_cast<bino::OBSTACLE_VIEW_TYPE>(type),
                                           pipeline.viewInput(), frame, picture_.view());
                }
                const cv::Mat rgba(picture_.height(), picture_.width(), CV_8UC4, picture_.data(),
                                   static_cast<std::size_t>(picture_.stride()) * 4);
                cv::Mat bgr;
                cv::cvtColor(rgba, bgr, cv::COLOR_RGBA2BGR);
                s = save(index, type, bgr);
            }
            if (!s.ok())
                return s;
        }
        return {};
    }

private:
    Status save(int index, int type, const cv::Mat& picture) const {
        char name[64];
        std::snprintf(name, sizeof name, "%06d_%s.png", index, kViewFiles[type]);
        const fs::path path = fs::path(folder_) / name;
        try {
            if (cv::imwrite(path.string(), picture))
                return {};
        } catch (const std::exception&) {
        }
        return {ErrorCode::kWriteFailed, "cannot write " + path.string() +
                                             "; is there space on the disk, and may you write?"};
    }

    std::string folder_;
    camera::Image<camera::Rgba> picture_;
    camera::Image<std::uint8_t> map_;
};

class DetectCommand : public Command {
public:
    std::string name() const override { return "detect"; }
    std::string description() const override {
        return "Detect ground and obstacles in a recording, as JSON lines";
    }

    void declare(CLI::App& app) override {
        app.add_option("file", file_, "Recording")->required();
        app.add_option("--frames", frames_,
                       "FIRST:LAST, counted from 0, both included; either may be left out")
            ->check([](const std::string& text) {
                return parseFrameRange(text) ? std::string() : "'" + text + "' is not FIRST:LAST";
            });
        app.add_option("--mode", mode_, "Work mode")
            ->check(CLI::IsMember({"fast", "medium", "slow"}))
            ->capture_default_str();
        app.add_option("--confidence", confidence_, "Leave out less sure depth")
            ->check(CLI::Range(0.0, 0.99))
            ->capture_default_str();
        app.add_flag("--imu", imu_, "Use the recorded inertial unit");
        app.add_flag("--single", single_, "Judge every frame alone, without confirmation");
        app.add_flag("--no-alignment", no_alignment_,
                     "Do not align the rows of the eyes by what the frames show");
        app.add_flag("--flip", flip_, "The camera hung upside down");
        app.add_option("--crop-top", crop_top_, "Rows ignored at the top [px]")
            ->check(CLI::NonNegativeNumber);
        app.add_option("--crop-bottom", crop_bottom_,
                       "Rows ignored at the bottom, the robot's own body [px]")
            ->check(CLI::NonNegativeNumber);
        app.add_option("--views", views_, "Folder for the six views of every frame, as PNG");
        app.add_flag("-f,--force", force_, "Write into a folder that is not empty");
    }

    int run() override {
        const auto opened = camera::RecordingReader::open(file_);
        if (!opened.ok())
            return fail(opened.status());
        camera::RecordingReader& reader = *opened.value();
        Status status;
        const auto pipeline = camera::Pipeline::make(reader.calibration(), status);
        if (!pipeline)
            return fail(status);
        ViewWriter views(views_);
        if (!views_.empty())
            if (Status s = views.prepare(force_); !s.ok())
                return fail(s);
        return process(reader, *pipeline, views);
    }

private:
    camera::PipelineSettings settings(const camera::Pipeline& pipeline) const {
        camera::PipelineSettings settings;
        settings.work_mode = mode_ == "fast"     ? camera::WorkMode::kFast
                             : mode_ == "medium" ? camera::WorkMode::kMedium
                                                 : camera::WorkMode::kSlow;
        settings.confidence_threshold = confidence_;
        settings.flip = flip_;
        settings.align_rows = !no_alignment_;
        settings.distance = camera::DistanceRange(pipeline.geometry(flip_));
        settings.detection.use_imu = imu_;
        settings.detection.temporal = !single_;
        settings.detection.stixels.crop_top = crop_top_;
        settings.detection.stixels.crop_bottom = crop_bottom_;
        return settings;
    }

    int process(camera::RecordingReader& reader, camera::Pipeline& pipeline, ViewWriter& views) {
        const camera::PipelineSettings settings = this->settings(pipeline);
        const std::int64_t count = reader.frameCount();
        const auto asked = parseFrameRange(frames_);
        const int first = static_cast<int>(asked ? std::min(asked->first, count) : 0);
        const int last = static_cast<int>(asked ? std::min(asked->second, count - 1) : count - 1);
        camera::FrameDecoder decoder(reader.stream());
        camera::RawFrame raw;
        camera::DecodedFrame frame;
        std::int64_t sequence = -1;
        int skipped = 0;
        Progress progress("Detecting");
        for (int i = first; i <= last; ++i) {
            progress.update(i - first, last - first + 1);
            if (!reader.read(i, raw).ok() || !decoder.decode(raw, frame.pair).ok()) {
                ++skipped;
                continue;
            }
            frame.t_ns = raw.t_ns;
            frame.sequence = raw.sequence;
            frame.exposure_us = raw.exposure_us;
            std::swap(frame.imu, raw.imu);
            frame.position = i;
            frame.dropped_frames =
                sequence >= 0 ? std::max<std::int64_t>(0, raw.sequence - sequence - 1) : 0;
            sequence = raw.sequence;
            if (Status s = pipeline.process(frame, settings); !s.ok())
                return fail(s);
            if (std::printf("%s\n", detectionJson(i, pipeline.detection()).c_str()) < 0)
                return fail({ErrorCode::kWriteFailed, "cannot write to standard output"});
            if (!views_.empty())
                if (Status s = views.write(i, pipeline); !s.ok())
                    return fail(s);
        }
        progress.finish();
        if (skipped > 0)
            std::fprintf(stderr, "kova: warning: %d damaged frames were left out\n", skipped);
        return std::fflush(stdout) == 0
                   ? kDone
                   : fail({ErrorCode::kWriteFailed, "cannot write to standard output"});
    }

    std::string file_, frames_, views_, mode_ = "medium";
    float confidence_ = 0;
    bool imu_ = false, single_ = false, flip_ = false, force_ = false;
    bool no_alignment_ = false;
    int crop_top_ = 0, crop_bottom_ = 0;
};

}  // namespace

std::unique_ptr<Command> makeDetectCommand() {
    return std::make_unique<DetectCommand>();
}

}  // namespace kova::tools
