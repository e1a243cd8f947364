#include "tools/commands/calibrate_command.h"

#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>

#include "camera/calibration/calibrator.h"
#include "camera/calibration/epipolar.h"
#include "camera/calibration/formats.h"
#include "camera/calibration/store.h"
#include "camera/calibration/view_collector.h"
#include "camera/pipeline/cameras.h"
#include "tools/camera_choice.h"
#include "tools/commands/calibrate_live.h"
#include "tools/commands/calibration_check.h"
#include "tools/commands/calibration_report.h"
#include "tools/interrupt.h"
#include "tools/picture_pairs.h"
#include "tools/progress.h"
#include "tools/report.h"

namespace kova::tools {

namespace {

const std::map<std::string, camera::BoardKind> kBoards = {
    {"chessboard", camera::BoardKind::kChessboard},
    {"charuco", camera::BoardKind::kCharuco},
    {"circles", camera::BoardKind::kAsymmetricCircles}};
const std::map<std::string, camera::CalibrationFormat> kFormats = {
    {"kova", camera::CalibrationFormat::kKova},
    {"opencv", camera::CalibrationFormat::kOpenCv},
    {"ros", camera::CalibrationFormat::kRos},
    {"kalibr", camera::CalibrationFormat::kKalibr},
    {"euroc", camera::CalibrationFormat::kEuroc}};
const std::map<std::string, camera::LensFreedom> kFreedoms = {
    {"auto", camera::LensFreedom::kAuto},
    {"same", camera::LensFreedom::kSame},
    {"free", camera::LensFreedom::kFree},
    {"fisheye", camera::LensFreedom::kFisheye}};

/// An option that takes one of a few words; another is refused with the list of them.
template <typename T>
CLI::Option* addChoice(CLI::App& app, const char* name, T& value,
                       const std::map<std::string, T>& choices, const char* text,
                       const std::string& help) {
    return app.add_option(name, value, help)
        ->transform(CLI::CheckedTransformer(choices))
        ->transform(CLI::IsMember(choices))  // asked first
        ->option_text(text);
}

class CalibrateCommand : public Command {
public:
    std::string name() const override { return "calibrate"; }
    std::string description() const override {
        return "Calibrate a stereo camera from views of a board, or check a calibration";
    }

    void declare(CLI::App& app) override {
        app.add_option("input", input_,
                       "Recording, folder of pictures, or one picture of both eyes side by side; "
                       "nothing with --camera");
        app.add_option("--right", right_, "Folder of the right eye's pictures, or its picture");
        app.add_option("--camera", camera_,
                       "Calibrate this attached camera from what it sees; number as in 'kova list'")
            ->check(CLI::NonNegativeNumber);
        app.add_option("--mode", mode_,
                       "With --camera: resolution and rate, for instance HD720_30FPS");
        app.add_option("--seconds", seconds_, "With --camera: take views for this time at most")
            ->check(CLI::PositiveNumber);
        addChoice(app, "--board", board_.kind, kBoards, "KIND", "chessboard, charuco or circles");
        app.add_option("--size", size_,
                       "Columns x rows: inner corners of a chessboard, squares of a ChArUco board, "
                       "circles per row and rows")
            ->capture_default_str();
        app.add_option(
               "--square", board_.square_mm,
               "Side of a square [mm]; of circles, half their distance in a row. Measure it: "
               "all distances scale with it")
            ->capture_default_str();
        app.add_option("--marker", board_.marker_mm,
                       "Side of a ChArUco marker [mm]; 0: three quarters of the square");
        app.add_option("--dictionary", board_.dictionary, "Dictionary of the ChArUco markers")
            ->capture_default_str();
        app.add_option(
               "--lenses", options_.freedom,
               "auto; same: one focal length, no tangential distortion; free; fisheye: very "
               "wide lenses")
            ->transform(CLI::CheckedTransformer(kFreedoms))
            ->option_text("HOW");
        app.add_option(
               "--coefficients", options_.coefficients,
               "Of the distortion of free lenses: 4, 5 or 8; as many as are clear when left "
               "out")
            ->check(CLI::IsMember({4, 5, 8}));
        app.add_option("--every", every_, "Look at every n-th pair only")
            ->check(CLI::PositiveNumber);
        auto* serial = app.add_option("--serial", serial_,
                                      "Keep the result for the camera with this serial number; "
                                      "with --camera it is known");
        app.add_option("--output", output_, "Write the result here instead")->excludes(serial);
        addChoice(app, "--format", format_, kFormats, "FORM",
                  "Form of the output: kova, opencv, ros, kalibr, euroc");
        app.add_flag("--force", force_, "Overwrite a calibration that is there already");
        app.add_flag("--check", check_, "Judge an existing calibration on the pictures");
        app.add_option("--calibration", calibration_,
                       "With --check: the calibration, one file, two or a folder; else the one "
                       "that comes with the pictures")
            ->expected(1, 2);
        app.add_flag("--json", json_, "Print the result as JSON");
    }

    int run() override {
        if (input_.empty() == (camera_ < 0))
            return fail({camera::ErrorCode::kInvalidArgument,
                         input_.empty() ? "give a recording or a folder of pictures, or --camera 0 "
                                          "for the first attached camera"
                                        : "give pictures or --camera, not both"});
        if (camera_ >= 0)
            return check_
                       ? fail({camera::ErrorCode::kInvalidArgument,
                               "--check takes a recording or pictures: record a few seconds with "
                               "'kova record'"})
                       : calibrateLive();
        auto pairs = PicturePairs::open(input_, right_);
        if (!pairs.ok())
            return fail(pairs.status());
        return check_ ? judge(*pairs.value()) : calibratePictures(*pairs.value());
    }

private:
    // --- Calibrating --------------------------------------------------------------------------
    camera::Status parseSize() {
        char end = 0;
        if (std::sscanf(size_.c_str(), "%dx%d%c", &board_.columns, &board_.rows, &end) != 2)
            return {camera::ErrorCode::kInvalidArgument,
                    "--size " + size_ + ": write columns x rows, as in 9x6"};
        return board_.check();
    }

    std::filesystem::path target() const {
        if (!output_.empty())
            return output_;
        if (serial_ > 0)
            return camera::calibrationFile(camera::calibrationFolders().front(), serial_);
        return {};
    }

    /// What can be said before the work begins.
    camera::Status prepare() {
        if (camera::Status s = parseSize(); !s.ok())
            return s;
        std::error_code error;
        if (!force_ && !target().empty() && std::filesystem::exists(target(), error))
            return {camera::ErrorCode::kInvalidArgument,
                    target().string() + ": is there already; --force overwrites it"};
        return {};
    }

    int calibratePictures(PicturePairs& pairs) {
        if (const camera::Status s = prepare(); !s.ok())
            return fail(s);
        camera::StereoCalibrator calibrator(board_, options_);
        look(pairs, calibrator);
        return finish(calibrator);
    }

    int calibrateLive() {
        const camera::Result<CameraChoice> choice = chooseCamera(camera_, mode_);
        if (!choice.ok())
            return fail(choice.status());
        if (output_.empty() && serial_ == 0)
            serial_ = choice.value().info.serial_number;
        if (const camera::Status s = prepare(); !s.ok())
            return fail(s);
        auto source = camera::openUncalibrated(camera_, choice.value().mode->mode);
        if (!source.ok())
            return fail(source.status());
        camera::StereoCalibrator calibrator(board_, options_);
        camera::ViewCollector collector(board_, calibrator);
        const Interrupt interrupt;
        const camera::Status ended =
            collectLive(*source.value(), collector, seconds_, ::isatty(STDERR_FILENO) != 0);
        if (!ended.ok())
            std::fprintf(stderr, "kova: %s; going on with the views so far\n",
                         ended.message().c_str());
        return finish(calibrator);
    }

    int finish(const camera::StereoCalibrator& calibrator) {
        const std::string missing = calibrator.coverage().missing();
        if (!missing.empty())
            std::fprintf(stderr, "kova: the board has not been in: %s\n", missing.c_str());
        camera::CalibrationReport report;
        const camera::Status status = calibrator.calibrate(report);
        if (json_)
            std::printf("%s\n", calibrationJson(report, status).dump(2).c_str());
        else if (report.calibration.width > 0)
            printCalibration(report);
        if (!status.ok())
            return fail(status);
        return write(report.calibration);
    }

    void look(PicturePairs& pairs, camera::StereoCalibrator& calibrator) {
        Progress progress("Looking for the board");
        camera::StereoPair pair;
        for (int i = 0; i < pairs.count(); i += every_) {
            progress.update(i, pairs.count());
            const camera::Status s = pairs.read(i, pair);
            const camera::BoardSighting sighting =
                s.ok() ? calibrator.add(pairs.name(i), pair.left.view(), pair.right.view())
                       : camera::BoardSighting{false, false, false, s.message()};
            if (!sighting.used) {
                progress.finish();
                std::fprintf(stderr, "kova: %s: %s\n", pairs.name(i).c_str(),
                             sighting.words.c_str());
            }
        }
    }

    int write(const camera::StereoCalibration& calibration) {
        if (target().empty()) {
            std::fprintf(stderr,
                         "kova: nothing is kept; --serial keeps it for a camera, --output writes a "
                         "file\n");
            return kDone;
        }
        std::filesystem::path path = target();
        const camera::Status s = output_.empty()
                                     ? camera::storeCalibration(serial_, calibration, &path)
                                     : camera::writeCalibration(calibration, format_, path);
        if (!s.ok())
            return fail(s);
        std::fprintf(stderr, "kova: written to %s\n", path.c_str());
        return kDone;
    }

    // --- Checking -----------------------------------------------------------------------------
    camera::Result<camera::StereoCalibration> calibrationFor(const PicturePairs& pairs,
                                                             const camera::StereoPair& pair) const {
        camera::ReadCalibrationOptions options;
        options.width = pair.left.width();
        options.height = pair.left.height();
        if (!calibration_.empty())
            return camera::readCalibration(
                std::vector<std::filesystem::path>(calibration_.begin(), calibration_.end()),
                options);
        if (serial_ > 0)
            return camera::findCalibration(serial_, options.width, options.height);
        if (pairs.calibration())
            return *pairs.calibration();
        std::error_code error;
        if (std::filesystem::is_directory(input_, error)) {
            auto read = camera::readCalibration(input_, options);
            if (read.ok() || read.status().code() != camera::ErrorCode::kCannotOpenFile)
                return read;
        }
        return camera::Status(camera::ErrorCode::kNotCalibrated,
                              input_ + ": holds no calibration; give one with --calibration");
    }

    int judge(PicturePairs& pairs) {
        camera::StereoPair pair;
        if (const camera::Status s = pairs.read(0, pair); !s.ok())
            return fail(s);
        const auto calibration = calibrationFor(pairs, pair);
        if (!calibration.ok())
            return fail(calibration.status());
        const auto judged = judgeCalibration(calibration.value(), pairs, every_);
        if (!judged.ok())
            return fail(judged.status());
        const camera::EpipolarReport& r = judged.value();
        const bool fits = r.status().ok();
        if (json_)
            std::printf("%s\n", nlohmann::json{{"fits", fits},
                                               {"words", r.words},
                                               {"matches", r.matches},
                                               {"median_dy_px", r.median_dy_px},
                                               {"median_abs_dy_px", r.median_abs_dy_px},
                                               {"inlier_share", r.inlier_share},
                                               {"baseline_mm", calibration.value().baselineMm()}}
                                    .dump(2)
                                    .c_str());
        else
            std::printf("%s\n%s\n", describeCalibration(calibration.value()).c_str(),
                        r.words.c_str());
        return fits ? kDone : kFailed;
    }

    std::string input_, right_, mode_, size_ = "9x6", output_;
    camera::Board board_;
    camera::CalibratorOptions options_;
    camera::CalibrationFormat format_ = camera::CalibrationFormat::kKova;
    std::vector<std::string> calibration_;
    std::uint32_t serial_ = 0;
    int camera_ = -1, every_ = 1;
    double seconds_ = 0;
    bool force_ = false, check_ = false, json_ = false;
};

}  // namespace

std::unique_ptr<Command> makeCalibrateCommand() {
    return std::make_unique<CalibrateCommand>();
}

}  // namespace kova::tools
