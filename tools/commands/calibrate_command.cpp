#include "tools/commands/calibrate_command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>

#include "camera/calibration/calibrator.h"
#include "camera/calibration/epipolar.h"
#include "camera/calibration/formats.h"
#include "camera/calibration/store.h"
#include "camera/rectification/rectifier.h"
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
const std::map<std::string, camera::LensFreedom> kFreedoms = {{"auto", camera::LensFreedom::kAuto},
                                                              {"same", camera::LensFreedom::kSame},
                                                              {"free", camera::LensFreedom::kFree}};
constexpr double kDistancesM[] = {1, 2, 5, 10};

class CalibrateCommand : public Command {
public:
    std::string name() const override { return "calibrate"; }
    std::string description() const override {
        return "Calibrate a stereo camera from pictures of a board, or check a calibration";
    }

    void declare(CLI::App& app) override {
        app.add_option("input", input_, "Recording, or folder of pictures")->required();
        app.add_option("--right", right_, "Folder of the right eye's pictures");
        app.add_option("--board", board_.kind, "chessboard, charuco or circles")
            ->transform(CLI::CheckedTransformer(kBoards))
            ->option_text("KIND");
        app.add_option("--size", size_,
                       "Columns x rows: inner corners of a chessboard, squares of a ChArUco board, "
                       "circles per row and rows")
            ->capture_default_str();
        app.add_option("--square", board_.square_mm,
                       "Side of a square [mm]; of circles, half their distance in a row")
            ->capture_default_str();
        app.add_option("--marker", board_.marker_mm,
                       "Side of a ChArUco marker [mm]; 0: three quarters of the square");
        app.add_option("--dictionary", board_.dictionary, "Dictionary of the ChArUco markers")
            ->capture_default_str();
        app.add_option("--lenses", options_.freedom,
                       "auto; same: one focal length, no tangential distortion; free")
            ->transform(CLI::CheckedTransformer(kFreedoms))
            ->option_text("HOW");
        app.add_option("--coefficients", options_.coefficients, "Of the distortion: 4, 5 or 8")
            ->check(CLI::IsMember({4, 5, 8}));
        app.add_option("--every", every_, "Look at every n-th pair only")
            ->check(CLI::PositiveNumber);
        auto* serial = app.add_option("--serial", serial_,
                                      "Keep the result for the camera with this serial number");
        app.add_option("--output", output_, "Write the result here instead")->excludes(serial);
        app.add_option("--format", format_, "Form of the output: kova, opencv, ros, kalibr, euroc")
            ->transform(CLI::CheckedTransformer(kFormats))
            ->option_text("FORM");
        app.add_flag("--force", force_, "Overwrite a calibration that is there already");
        app.add_flag("--check", check_, "Judge an existing calibration on the pictures");
        app.add_option("--calibration", calibration_,
                       "With --check: the calibration, one file, two or a folder; else the one "
                       "that comes with the pictures")
            ->expected(1, 2);
        app.add_flag("--json", json_, "Print the result as JSON");
    }

    int run() override {
        auto pairs = PicturePairs::open(input_, right_);
        if (!pairs.ok())
            return fail(pairs.status());
        return check_ ? judge(*pairs.value()) : calibrate(*pairs.value());
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

    int calibrate(PicturePairs& pairs) {
        if (const camera::Status s = parseSize(); !s.ok())
            return fail(s);
        std::error_code error;
        if (!force_ && !target().empty() && std::filesystem::exists(target(), error))
            return fail({camera::ErrorCode::kInvalidArgument,
                         target().string() + ": is there already; --force overwrites it"});
        camera::StereoCalibrator calibrator(board_, options_);
        look(pairs, calibrator);
        const std::string missing = calibrator.coverage().missing();
        if (!missing.empty())
            std::fprintf(stderr, "kova: the board has not been in: %s\n", missing.c_str());
        camera::CalibrationReport report;
        const camera::Status status = calibrator.calibrate(report);
        if (json_)
            std::printf("%s\n", asJson(report, status).dump(2).c_str());
        else if (report.calibration.width > 0)
            print(report);
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
        if (target().empty())
            return kDone;
        std::filesystem::path path = target();
        const camera::Status s = output_.empty()
                                     ? camera::storeCalibration(serial_, calibration, &path)
                                     : camera::writeCalibration(calibration, format_, path);
        if (!s.ok())
            return fail(s);
        std::fprintf(stderr, "kova: written to %s\n", path.c_str());
        return kDone;
    }

    static void print(const camera::CalibrationReport& r) {
        const camera::StereoCalibration& c = r.calibration;
        std::printf("Picture       %dx%d\n", c.width, c.height);
        for (const auto& [name, eye] : {std::pair("Left ", &c.left), {"Right", &c.right}})
            std::printf("%s         fx %.2f fy %.2f cx %.2f cy %.2f px\n", name, eye->fx, eye->fy,
                        eye->cx, eye->cy);
        std::printf("Baseline      %.2f mm\n", c.baselineMm());
        std::printf("Lenses        %s\n",
                    r.same_lenses ? "same focal length, no tangential terms" : "free");
        std::printf("Error         stereo %.3f, left alone %.3f, right alone %.3f px rms\n",
                    r.stereo_rms_px, r.left_rms_px, r.right_rms_px);
        std::printf("Epipolar      %.3f px rms\n", r.epipolar_rms_px);
        std::printf("Focal length  uncertain by %.2f %%\n", r.focal_sigma * 100);
        std::printf("Coverage      %.0f %% of the picture areas\n", r.coverage.share() * 100);
        for (const double m : kDistancesM)
            std::printf("At %4.0f m     depth error %.0f mm expected\n", m,
                        camera::expectedDepthErrorMm(c, r.epipolar_rms_px, m * 1000));
        for (const camera::ViewError& v : r.views)
            std::printf("View          %s: left %.2f, right %.2f px%s\n", v.name.c_str(), v.left_px,
                        v.right_px, v.rejected ? ", rejected as an outlier" : "");
    }

    static nlohmann::json asJson(const camera::CalibrationReport& r, const camera::Status& status) {
        const camera::StereoCalibration& c = r.calibration;
        const auto eye = [](const camera::CameraIntrinsics& e) {
            return nlohmann::json{{"fx_px", e.fx},
                                  {"fy_px", e.fy},
                                  {"cx_px", e.cx},
                                  {"cy_px", e.cy},
                                  {"distortion", e.distortion}};
        };
        nlohmann::json j{{"accepted", status.ok()},
                         {"reason", status.message()},
                         {"missing_areas", r.coverage.missing()},
                         {"coverage", r.coverage.share()}};
        if (c.width > 0) {
            j["width"] = c.width;
            j["height"] = c.height;
            j["left"] = eye(c.left);
            j["right"] = eye(c.right);
            j["baseline_mm"] = c.baselineMm();
            j["same_lenses"] = r.same_lenses;
            j["stereo_rms_px"] = r.stereo_rms_px;
            j["epipolar_rms_px"] = r.epipolar_rms_px;
            j["focal_sigma"] = r.focal_sigma;
            for (const double m : kDistancesM)
                j["depth_error_mm"].push_back(
                    {{"distance_m", m},
                     {"error_mm", camera::expectedDepthErrorMm(c, r.epipolar_rms_px, m * 1000)}});
        }
        for (const camera::ViewError& v : r.views)
            j["views"].push_back({{"name", v.name},
                                  {"left_px", v.left_px},
                                  {"right_px", v.right_px},
                                  {"rejected", v.rejected}});
        return j;
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
        if (pairs.calibration())
            return *pairs.calibration();
        std::error_code error;
        if (std::filesystem::is_directory(input_, error))
            return camera::readCalibration(input_, options);
        return camera::Status(camera::ErrorCode::kNotCalibrated,
                              input_ + ": holds no calibration; give one with --calibration");
    }

    int judge(PicturePairs& pairs) {
        constexpr int kMostPairs = 20;
        camera::StereoPair pair;
        if (const camera::Status s = pairs.read(0, pair); !s.ok())
            return fail(s);
        const auto calibration = calibrationFor(pairs, pair);
        if (!calibration.ok())
            return fail(calibration.status());
        camera::Status status =
            camera::checkPictureSize(calibration.value().width, calibration.value().height,
                                     pair.left.width(), pair.left.height());
        if (!status.ok())
            return fail(status);
        const auto rectifier = camera::Rectifier::make(calibration.value(), status);
        if (!rectifier)
            return fail(status);
        camera::EpipolarCheck check(rectifier->geometry().disparityOffset());
        camera::Image<std::uint8_t> left, right;
        Progress progress("Comparing");
        const int step = std::max(every_, (pairs.count() + kMostPairs - 1) / kMostPairs);
        for (int i = 0; i < pairs.count(); i += step) {
            progress.update(i, pairs.count());
            if (!pairs.read(i, pair).ok() || pair.left.width() != calibration.value().width ||
                pair.left.height() != calibration.value().height ||
                pair.right.width() != pair.left.width() ||
                pair.right.height() != pair.left.height())
                continue;
            rectifier->rectify(pair.left.view(), pair.right.view(), left, right);
            check.add(left.view(), right.view());
        }
        progress.finish();
        const camera::EpipolarReport r = check.report();
        if (json_)
            std::printf("%s\n", nlohmann::json{{"fits", r.status().ok()},
                                               {"words", r.words},
                                               {"matches", r.matches},
                                               {"median_dy_px", r.median_dy_px},
                                               {"median_abs_dy_px", r.median_abs_dy_px},
                                               {"inlier_share", r.inlier_share}}
                                    .dump(2)
                                    .c_str());
        else
            std::printf("%s\n", r.words.c_str());
        return r.status().ok() ? kDone : kFailed;
    }

    std::string input_, right_, size_ = "9x6", output_;
    camera::Board board_;
    camera::CalibratorOptions options_;
    camera::CalibrationFormat format_ = camera::CalibrationFormat::kKova;
    std::vector<std::string> calibration_;
    std::uint32_t serial_ = 0;
    int every_ = 1;
    bool force_ = false, check_ = false, json_ = false;
};

}  // namespace

std::unique_ptr<Command> makeCalibrateCommand() {
    return std::make_unique<CalibrateCommand>();
}

}  // namespace kova::tools
