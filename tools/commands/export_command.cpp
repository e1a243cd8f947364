#include "tools/commands/export_command.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <limits>

#include "camera/recording/recording_reader.h"
#include "camera/rectification/rectifier.h"
#include "camera/sources/decode.h"
#include "tools/progress.h"
#include "tools/report.h"

namespace kova::tools {

namespace {

namespace fs = std::filesystem;
using camera::ErrorCode;
using camera::Status;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

Status cannotWrite(const fs::path& path) {
    return {ErrorCode::kWriteFailed,
            "cannot write " + path.string() + "; is there space on the disk, and may you write?"};
}

Status writePng(const fs::path& path, const cv::Mat& picture) {
    try {
        if (cv::imwrite(path.string(), picture))
            return {};
    } catch (const std::exception&) {
    }
    return cannotWrite(path);
}

cv::Mat greyMat(const camera::Image<std::uint8_t>& image) {
    return cv::Mat(image.height(), image.width(), CV_8UC1, const_cast<std::uint8_t*>(image.data()),
                   static_cast<std::size_t>(image.stride()));
}

class ExportCommand : public Command {
public:
    std::string name() const override { return "export"; }
    std::string description() const override {
        return "Write a recording as pictures, tables and a calibration";
    }

    void declare(CLI::App& app) override {
        app.add_option("file", file_, "Recording")->required();
        app.add_option("output", output_,
                       "Folder to write: left, right, timestamps.csv, imu.csv, calibration.yml")
            ->required();
        app.add_option("--frames", frames_,
                       "FIRST:LAST, counted from 0, both included; either may be left out")
            ->check([](const std::string& text) {
                return parseFrameRange(text) ? std::string() : "'" + text + "' is not FIRST:LAST";
            });
        app.add_flag("--rectified", rectified_, "Write rectified pictures and their calibration");
        app.add_flag("--colour", colour_, "Also write the left eye in colour, where there is any");
        app.add_flag("-f,--force", force_, "Write into a folder that is not empty");
    }

    int run() override {
        camera::RecordingReaderOptions options;
        options.without_calibration = !rectified_;
        const auto opened = camera::RecordingReader::open(file_, options);
        if (!opened.ok())
            return fail(opened.status());
        camera::RecordingReader& reader = *opened.value();
        if (Status s = makeFolders(); !s.ok())
            return fail(s);
        if (rectified_) {
            Status status;
            rectifier_ = camera::Rectifier::make(reader.calibration(), status);
            if (!rectifier_)
                return fail(status);
        }
        for (const Status& s : {writeCalibration(reader), writeImu(reader), writeFrames(reader)})
            if (!s.ok())
                return fail(s);
        std::printf("%s: %d frames\n", output_.c_str(), written_);
        if (skipped_ > 0)
            std::fprintf(stderr, "kova: warning: %d damaged frames were left out\n", skipped_);
        return kDone;
    }

private:
    Status makeFolders() const {
        std::error_code error;
        const fs::path folder = output_;
        if (fs::exists(folder, error) && !fs::is_directory(folder, error))
            return {ErrorCode::kWriteFailed, output_ + " is not a folder"};
        if (!force_ && fs::is_directory(folder, error) && !fs::is_empty(folder, error))
            return {ErrorCode::kWriteFailed,
                    output_ + " is not empty; choose another folder or give --force"};
        for (const char* name : {"left", "right"}) fs::create_directories(folder / name, error);
        if (colour_)
            fs::create_directories(folder / "left_colour", error);
        return error ? cannotWrite(folder) : Status();
    }

    Status writeCalibration(camera::RecordingReader& reader) const {
        camera::StereoCalibration c = reader.calibration();
        if (c.width <= 0)
            return {};
        if (rectifier_) {
            const camera::RectifiedGeometry& g = rectifier_->geometry();
            c = {};
            c.width = g.width;
            c.height = g.height;
            c.left = {g.fx, g.fy, g.cx, g.cy, camera::LensModel::kRadialTangential, {}};
            c.right = c.left;
            c.right.cx = g.cx_right;
            c.translation_mm = {-g.baseline_mm, 0, 0};
            c.rectified = true;
        }
        return writeText("calibration.yml", toYaml(c));
    }

    Status writeText(const char* name, const std::string& text) const {
        const fs::path path = fs::path(output_) / name;
        const File file(std::fopen(path.c_str(), "w"));
        if (!file || std::fputs(text.c_str(), file.get()) < 0 || std::fflush(file.get()) != 0)
            return cannotWrite(path);
        return {};
    }

    std::pair<int, int> range(camera::RecordingReader& reader) const {
        const auto asked = parseFrameRange(frames_);
        if (!asked)
            return {0, reader.frameCount() - 1};
        const std::int64_t n = reader.frameCount();
        return {static_cast<int>(std::min(asked->first, n)),
                static_cast<int>(std::min(asked->second, n - 1))};
    }

    Status writeImu(camera::RecordingReader& reader) const {
        const auto [first, last] = range(reader);
        if (reader.imuSampleCount() == 0 || first > last)
            return {};
        const fs::path path = fs::path(output_) / "imu.csv";
        const File file(std::fopen(path.c_str(), "w"));
        if (!file)
            return cannotWrite(path);
        std::fputs("t_ns,ax,ay,az,gx,gy,gz,mx,my,mz\n", file.get());
        const std::int64_t from =
            first > 0 ? reader.timeNs(first - 1) : std::numeric_limits<std::int64_t>::min();
        for (const camera::ImuSample& s :
             reader.imuBetween(from, reader.timeNs(last), std::numeric_limits<int>::max()))
            std::fprintf(file.get(), "%" PRId64 ",%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g\n",
                         s.t_ns, s.accel[0], s.accel[1], s.accel[2], s.gyro[0], s.gyro[1],
                         s.gyro[2], s.magnet[0], s.magnet[1], s.magnet[2]);
        return std::fflush(file.get()) == 0 ? Status() : cannotWrite(path);
    }

    Status writeFrames(camera::RecordingReader& reader) {
        const auto [first, last] = range(reader);
        const fs::path path = fs::path(output_) / "timestamps.csv";
        const File file(std::fopen(path.c_str(), "w"));
        if (!file)
            return cannotWrite(path);
        std::fputs("frame,t_ns,sequence,exposure_us\n", file.get());
        camera::FrameDecoder decoder(reader.stream());
        camera::RawFrame frame;
        camera::StereoPair pair;
        Progress progress("Exporting");
        for (int i = first; i <= last; ++i) {
            progress.update(i - first, last - first + 1);
            if (!reader.read(i, frame).ok() || !decoder.decode(frame, pair).ok()) {
                ++skipped_;
                continue;
            }
            if (Status s = writePictures(i, pair); !s.ok())
                return s;
            std::fprintf(file.get(), "%d,%" PRId64 ",%" PRId64 ",%.9g\n", i, frame.t_ns,
                         frame.sequence, frame.exposure_us);
            ++written_;
        }
        return std::fflush(file.get()) == 0 ? Status() : cannotWrite(path);
    }

    Status writePictures(int i, camera::StereoPair& pair) {
        char name[16];
        std::snprintf(name, sizeof name, "%06d.png", i);
        const fs::path folder = output_;
        if (rectifier_) {
            rectifier_->rectify(pair.left.view(), pair.right.view(), left_, right_);
            if (Status s = writePng(folder / "left" / name, greyMat(left_)); !s.ok())
                return s;
            if (Status s = writePng(folder / "right" / name, greyMat(right_)); !s.ok())
                return s;
        } else {
            if (Status s = writePng(folder / "left" / name, greyMat(pair.left)); !s.ok())
                return s;
            if (Status s = writePng(folder / "right" / name, greyMat(pair.right)); !s.ok())
                return s;
        }
        if (!colour_ || pair.left_colour.empty())
            return {};
        if (rectifier_)
            rectifier_->rectifyLeftColour(pair.left_colour.view(), left_colour_);
        camera::Image<camera::Rgba>& colour = rectifier_ ? left_colour_ : pair.left_colour;
        cv::Mat bgr;
        cv::cvtColor(cv::Mat(colour.height(), colour.width(), CV_8UC4, colour.data(),
                             static_cast<std::size_t>(colour.stride()) * sizeof(camera::Rgba)),
                     bgr, cv::COLOR_RGBA2BGR);
        return writePng(folder / "left_colour" / name, bgr);
    }

    std::string file_, output_, frames_;
    bool rectified_ = false, colour_ = false, force_ = false;
    std::unique_ptr<camera::Rectifier> rectifier_;
    camera::Image<std::uint8_t> left_, right_;
    camera::Image<camera::Rgba> left_colour_;
    int written_ = 0, skipped_ = 0;
};

}  // namespace

std::unique_ptr<Command> makeExportCommand() {
    return std::make_unique<ExportCommand>();
}

}  // namespace kova::tools
