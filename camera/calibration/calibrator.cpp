#include "camera/calibration/calibrator.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <utility>

#include "camera/calibration/stereo_fit.h"

namespace kova::camera {

namespace {

constexpr int kPointsToCoverAnArea = 3;  // over all views
constexpr int kRounds = 4;               // of leaving outliers out
constexpr double kWorthFreedom = 0.75;   // of the error of simpler lenses
constexpr double kWorthFisheye = 0.9;
constexpr double kGoodFitPx = 0.3;
constexpr double kWideView = 2;  // widths per focal length: 90 degrees without distortion
constexpr double kMatchingErrorPx = 0.25;

std::string px(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f px", value);
    return text;
}

std::vector<cv::Point2f> asPoints(const std::vector<std::array<float, 2>>& pixels) {
    std::vector<cv::Point2f> points;
    for (const auto& p : pixels) points.emplace_back(p[0], p[1]);
    return points;
}

/// Some boards look the same when turned, so that the eyes may count from different ends: the one
/// whose points run against the other's is turned round.
void countFromTheSameEnd(const BoardPoints& left, BoardPoints& right) {
    if (left.ids.size() < 2 || left.ids.size() != right.ids.size())
        return;
    const auto direction = [](const BoardPoints& p) {
        return cv::Point2f(p.pixels.back()[0] - p.pixels.front()[0],
                           p.pixels.back()[1] - p.pixels.front()[1]);
    };
    if (direction(left).dot(direction(right)) < 0)
        std::reverse(right.pixels.begin(), right.pixels.end());
}

/// The board stands where it stood: mean shift of the points below half a percent of the width.
bool looksTheSame(const BoardPoints& a, const BoardPoints& b, int width) {
    if (a.ids != b.ids)
        return false;
    double sum = 0;
    for (std::size_t i = 0; i < a.pixels.size(); ++i)
        sum += std::hypot(a.pixels[i][0] - b.pixels[i][0], a.pixels[i][1] - b.pixels[i][1]);
    return sum / static_cast<double>(a.pixels.size()) < 0.005 * width;
}

int areaOf(const std::array<float, 2>& p, int width, int height) {
    const int column = std::clamp(static_cast<int>(p[0] * 3 / static_cast<float>(width)), 0, 2);
    const int row = std::clamp(static_cast<int>(p[1] * 3 / static_cast<float>(height)), 0, 2);
    return row * 3 + column;
}

/// Views whose error is far above that of the others; a view that is good in itself is never one.
/// Where the whole fit is bad, the worst view spoils the others: it alone goes then.
std::vector<std::size_t> outliersOf(const std::vector<std::size_t>& used,
                                    const CalibrationReport& report, double max_rms_px) {
    std::vector<double> errors;
    for (const std::size_t i : used)
        errors.push_back(std::max(report.views[i].left_px, report.views[i].right_px));
    if (report.stereo_rms_px > max_rms_px)
        return {used[static_cast<std::size_t>(std::max_element(errors.begin(), errors.end()) -
                                              errors.begin())]};
    std::vector<double> sorted = errors;
    std::sort(sorted.begin(), sorted.end());
    const double limit = std::max(0.5, 2.5 * sorted[sorted.size() / 2]);
    std::vector<std::size_t> outliers;
    for (std::size_t k = 0; k < used.size(); ++k)
        if (errors[k] > limit)
            outliers.push_back(used[k]);
    return outliers;
}

Status judge(const CalibrationReport& r, const CalibratorOptions& o) {
    const auto bad = [](const std::string& why) {
        return Status(ErrorCode::kCalibrationMisfit, why);
    };
    if (r.stereo_rms_px > o.max_rms_px)
        return bad("the stereo error is " + px(r.stereo_rms_px) + ", at most " + px(o.max_rms_px) +
                   " is accepted; are the pictures sharp, taken by both eyes at the same moment, "
                   "and is the board flat?");
    if (r.epipolar_rms_px > o.max_epipolar_px)
        return bad("the rows of both eyes differ by " + px(r.epipolar_rms_px) + ", at most " +
                   px(o.max_epipolar_px) +
                   " is accepted; take the pictures with camera and board "
                   "standing still");
    if (r.focal_sigma > o.max_focal_sigma) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "the focal length is uncertain by %.1f %%; tilt the board to all sides and "
                      "take more pictures",
                      r.focal_sigma * 100);
        return bad(text);
    }
    if (r.coverage.share() < 0.5)
        return bad("the board was seen in too little of the pictures; missing: " +
                   r.coverage.missing());
    if (r.calibration.translation_mm[0] > 0)
        return bad("the right eye lies left of the left one: the eyes are swapped");
    return r.calibration.check();
}

}  // namespace

void Coverage::add(const BoardPoints& in_left, const BoardPoints& in_right, int width, int height) {
    for (const auto& p : in_left.pixels) ++left[areaOf(p, width, height)];
    for (const auto& p : in_right.pixels) ++right[areaOf(p, width, height)];
}

double Coverage::share() const {
    int covered = 0;
    for (int i = 0; i < 9; ++i)
        covered += (left[i] >= kPointsToCoverAnArea) + (right[i] >= kPointsToCoverAnArea);
    return covered / 18.0;
}

std::string Coverage::missing() const {
    static const char* const kNames[] = {"top left",    "top",    "top right",
                                         "left",        "centre", "right",
                                         "bottom left", "bottom", "bottom right"};
    std::string words;
    for (const bool is_left : {true, false}) {
        std::string areas;
        for (int i = 0; i < 9; ++i)
            if ((is_left ? left : right)[i] < kPointsToCoverAnArea)
                areas += (areas.empty() ? "" : ", ") + std::string(kNames[i]);
        if (!areas.empty())
            words += (words.empty() ? "" : "; ") +
                     std::string(is_left ? "left eye: " : "right eye: ") + areas;
    }
    return words;
}

double expectedDepthErrorMm(const StereoCalibration& c, double epipolar_px, double distance_mm) {
    return distance_mm * distance_mm / (c.left.fx * c.baselineMm()) *
           std::hypot(kMatchingErrorPx, epipolar_px);
}

BoardSighting StereoCalibrator::add(const std::string& name,
                                    const ImageView<const std::uint8_t>& left,
                                    const ImageView<const std::uint8_t>& right) {
    if (left.width != right.width || left.height != right.height) {
        BoardSighting sighting;
        sighting.words = "the eyes' pictures differ in size";
        return sighting;
    }
    return add(name, left.width, left.height, findBoard(board_, left), findBoard(board_, right));
}

BoardSighting StereoCalibrator::add(const std::string& name, int width, int height,
                                    const BoardPoints& in_left, const BoardPoints& found_right) {
    BoardSighting sighting;
    if (width_ == 0) {
        width_ = width;
        height_ = height;
    } else if (width != width_ || height != height_) {
        sighting.words = "has " + std::to_string(width) + "x" + std::to_string(height) +
                         ", the first pair " + std::to_string(width_) + "x" +
                         std::to_string(height_);
        return sighting;
    }
    BoardPoints in_right = found_right;
    sighting.left = static_cast<int>(in_left.ids.size()) >= kFewestPoints;
    sighting.right = static_cast<int>(in_right.ids.size()) >= kFewestPoints;
    if (!sighting.left || !sighting.right) {
        sighting.words = sighting.left    ? "the board is in the left eye only"
                         : sighting.right ? "the board is in the right eye only"
                                          : "no board";
        return sighting;
    }
    if (board_.kind != BoardKind::kCharuco)
        countFromTheSameEnd(in_left, in_right);

    View view;
    view.name = name;
    for (std::size_t i = 0, k = 0; i < in_left.ids.size(); ++i) {
        while (k < in_right.ids.size() && in_right.ids[k] < in_left.ids[i]) ++k;
        if (k == in_right.ids.size() || in_right.ids[k] != in_left.ids[i])
            continue;
        view.left.ids.push_back(in_left.ids[i]);
        view.left.pixels.push_back(in_left.pixels[i]);
        view.right.ids.push_back(in_right.ids[k]);
        view.right.pixels.push_back(in_right.pixels[k]);
    }
    if (static_cast<int>(view.left.ids.size()) < kFewestPoints) {
        sighting.words = "the eyes see different parts of the board";
        return sighting;
    }
    for (const View& other : views_)
        if (looksTheSame(view.left, other.left, width_)) {
            sighting.words = "the board stands as in " + other.name + "; move it";
            return sighting;
        }
    sighting.used = true;
    sighting.words = "the board is in both eyes";
    views_.push_back(std::move(view));
    return sighting;
}

Coverage StereoCalibrator::coverage() const {
    Coverage coverage;
    for (const View& view : views_) coverage.add(view.left, view.right, width_, height_);
    return coverage;
}

namespace {

/// Fits the lenses that are asked for; automatically, the simplest that no freer ones better by a
/// quarter. A fisheye, as free as free lenses, need be better by a tenth only; it is tried where
/// others fit badly or the view is wide. Where one kind fails, the next may still fit.
StereoFit fitLenses(const BoardObservations& views, int width, int height,
                    const CalibratorOptions& options) {
    if (options.freedom != LensFreedom::kAuto)
        return fitStereo(views, width, height, options.freedom, options.coefficients);
    std::optional<StereoFit> best;
    std::optional<cv::Exception> failure;
    for (const LensFreedom lenses :
         {LensFreedom::kSame, LensFreedom::kFree, LensFreedom::kFisheye}) {
        const bool fisheye = lenses == LensFreedom::kFisheye;
        if (fisheye && best && best->stereo_rms_px < kGoodFitPx &&
            width < kWideView * best->calibration.left.fx)
            break;
        try {
            StereoFit fit = fitStereo(views, width, height, lenses, options.coefficients);
            const double worth = fisheye ? kWorthFisheye : kWorthFreedom;
            if (!best || fit.stereo_rms_px < worth * best->stereo_rms_px)
                best = std::move(fit);
        } catch (const cv::Exception& error) {
            failure = error;
        }
    }
    if (!best)
        throw *failure;
    return std::move(*best);
}

}  // namespace

Status StereoCalibrator::solve(const std::vector<std::size_t>& used,
                               CalibrationReport& report) const {
    BoardObservations o;
    for (const std::size_t i : used) {
        std::vector<cv::Point3f> points;
        for (const int id : views_[i].left.ids) {
            const auto p = board_.point(id);
            points.emplace_back(static_cast<float>(p[0]), static_cast<float>(p[1]), 0.0F);
        }
        o.board.push_back(std::move(points));
        o.left.push_back(asPoints(views_[i].left.pixels));
        o.right.push_back(asPoints(views_[i].right.pixels));
    }
    try {
        const StereoFit fit = fitLenses(o, width_, height_, options_);
        report.calibration = fit.calibration;
        report.lenses = fit.lenses;
        report.left_rms_px = fit.left_rms_px;
        report.right_rms_px = fit.right_rms_px;
        report.stereo_rms_px = fit.stereo_rms_px;
        report.epipolar_rms_px = fit.epipolar_rms_px;
        report.focal_sigma = fit.focal_sigma;
        for (std::size_t k = 0; k < used.size(); ++k) {
            report.views[used[k]].left_px = fit.view_errors_px[k][0];
            report.views[used[k]].right_px = fit.view_errors_px[k][1];
        }
    } catch (const cv::Exception& error) {
        return {ErrorCode::kCalibrationMisfit, "no calibration fits the views: " + error.err};
    }
    return {};
}

Status StereoCalibrator::calibrate(CalibrationReport& report) const {
    report = {};
    if (Status s = board_.check(); !s.ok())
        return s;
    if (options_.coefficients != 0 && options_.coefficients != 4 && options_.coefficients != 5 &&
        options_.coefficients != 8)
        return {ErrorCode::kInvalidArgument, "4, 5 or 8 distortion coefficients are possible"};
    report.coverage = coverage();
    std::vector<std::size_t> used;
    for (std::size_t i = 0; i < views_.size(); ++i) {
        report.views.push_back({views_[i].name, 0, 0, false});
        used.push_back(i);
    }
    const auto enough = [&] { return static_cast<int>(used.size()) >= options_.min_views; };
    const auto tooFew = [&](const std::string& of) {
        return Status(ErrorCode::kInvalidArgument,
                      "the board was found in both eyes in " + std::to_string(used.size()) + of +
                          " pairs, " + std::to_string(options_.min_views) +
                          " are needed; is it the right board (kind, columns x rows), whole in the "
                          "picture and lit evenly?");
    };
    if (!enough())
        return tooFew("");
    for (int round = 0; round < kRounds; ++round) {
        if (Status s = solve(used, report); !s.ok())
            return s;
        const std::vector<std::size_t> outliers = outliersOf(used, report, options_.max_rms_px);
        if (outliers.empty() || round == kRounds - 1)
            break;  // what is reported was computed with all views that are not rejected
        for (const std::size_t i : outliers) {
            report.views[i].rejected = true;
            used.erase(std::find(used.begin(), used.end(), i));
        }
        if (!enough())
            return report.stereo_rms_px > options_.max_rms_px ? judge(report, options_)
                                                              : tooFew(" usable");
    }
    return judge(report, options_);
}

}  // namespace kova::camera
