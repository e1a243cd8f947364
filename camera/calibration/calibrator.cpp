#include "camera/calibration/calibrator.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kova::camera {

namespace {

constexpr int kFewestPoints = 8;         // of a view
constexpr int kPointsToCoverAnArea = 3;  // over all views
constexpr int kRounds = 4;               // of leaving outliers out
constexpr double kWorthFreedom = 0.75;   // of the error of same lenses
constexpr double kMatchingErrorPx = 0.25;

using Points3 = std::vector<std::vector<cv::Point3f>>;
using Points2 = std::vector<std::vector<cv::Point2f>>;

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
bool looksTheSame(const std::vector<int>& ids_a, const std::vector<std::array<float, 2>>& a,
                  const std::vector<int>& ids_b, const std::vector<std::array<float, 2>>& b,
                  int width) {
    if (ids_a != ids_b)
        return false;
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += std::hypot(a[i][0] - b[i][0], a[i][1] - b[i][1]);
    return sum / static_cast<double>(a.size()) < 0.005 * width;
}

int areaOf(const std::array<float, 2>& p, int width, int height) {
    const int column = std::clamp(static_cast<int>(p[0] * 3 / static_cast<float>(width)), 0, 2);
    const int row = std::clamp(static_cast<int>(p[1] * 3 / static_cast<float>(height)), 0, 2);
    return row * 3 + column;
}

void setEye(CameraIntrinsics& eye, const cv::Mat& m, const cv::Mat& d, int coefficients) {
    eye.fx = m.at<double>(0, 0);
    eye.fy = m.at<double>(1, 1);
    eye.cx = m.at<double>(0, 2);
    eye.cy = m.at<double>(1, 2);
    const cv::Mat flat = d.reshape(1, 1);
    eye.distortion.assign(flat.begin<double>(), flat.end<double>());
    eye.distortion.resize(static_cast<std::size_t>(coefficients), 0.0);
}

struct Eye {
    cv::Mat matrix = cv::Mat::eye(3, 3, CV_64F);
    cv::Mat distortion;
    double rms = 0;
    double focal_sigma = 0;
};

int lensFlags(int coefficients) {
    if (coefficients == 8)
        return cv::CALIB_RATIONAL_MODEL;
    return coefficients == 4 ? cv::CALIB_FIX_K3 : 0;
}

Eye calibrateEye(const Points3& board, const Points2& pixels, cv::Size size, int flags) {
    Eye eye;
    std::vector<cv::Mat> rotations, translations;
    cv::Mat sigmas, extrinsic_sigmas, errors;
    eye.rms = cv::calibrateCamera(board, pixels, size, eye.matrix, eye.distortion, rotations,
                                  translations, sigmas, extrinsic_sigmas, errors, flags);
    eye.focal_sigma = sigmas.at<double>(0) / eye.matrix.at<double>(0, 0);
    return eye;
}

double epipolarRms(const Eye& left, const Eye& right, const cv::Mat& r, const cv::Mat& t,
                   cv::Size size, const Points2& in_left, const Points2& in_right) {
    cv::Mat r1, r2, p1, p2, q;
    cv::stereoRectify(left.matrix, left.distortion, right.matrix, right.distortion, size, r, t, r1,
                      r2, p1, p2, q, cv::CALIB_ZERO_DISPARITY, 0, size);
    double sum = 0;
    std::size_t count = 0;
    for (std::size_t i = 0; i < in_left.size(); ++i) {
        std::vector<cv::Point2f> a, b;
        cv::undistortPoints(in_left[i], a, left.matrix, left.distortion, r1, p1);
        cv::undistortPoints(in_right[i], b, right.matrix, right.distortion, r2, p2);
        for (std::size_t k = 0; k < a.size(); ++k) sum += std::pow(a[k].y - b[k].y, 2);
        count += a.size();
    }
    return std::sqrt(sum / static_cast<double>(std::max<std::size_t>(1, count)));
}

/// Views whose error is far above that of the others; a view that is good in itself is never one.
std::vector<std::size_t> outliersOf(const std::vector<std::size_t>& used,
                                    const std::vector<ViewError>& views) {
    std::vector<double> errors;
    for (const std::size_t i : used)
        errors.push_back(std::max(views[i].left_px, views[i].right_px));
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
    BoardSighting sighting;
    const auto size = [](const ImageView<const std::uint8_t>& v) {
        return std::to_string(v.width) + "x" + std::to_string(v.height);
    };
    if (left.width != right.width || left.height != right.height) {
        sighting.words = "the eyes' pictures differ in size";
        return sighting;
    }
    if (width_ == 0) {
        width_ = left.width;
        height_ = left.height;
    } else if (left.width != width_ || left.height != height_) {
        sighting.words = "has " + size(left) + ", the first pair " + std::to_string(width_) + "x" +
                         std::to_string(height_);
        return sighting;
    }
    const BoardPoints in_left = findBoard(board_, left);
    BoardPoints in_right = findBoard(board_, right);
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
        view.ids.push_back(in_left.ids[i]);
        view.left.push_back(in_left.pixels[i]);
        view.right.push_back(in_right.pixels[k]);
    }
    if (static_cast<int>(view.ids.size()) < kFewestPoints) {
        sighting.words = "the eyes see different parts of the board";
        return sighting;
    }
    for (const View& other : views_)
        if (looksTheSame(view.ids, view.left, other.ids, other.left, width_)) {
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
    for (const View& view : views_) {
        for (const auto& p : view.left) ++coverage.left[areaOf(p, width_, height_)];
        for (const auto& p : view.right) ++coverage.right[areaOf(p, width_, height_)];
    }
    return coverage;
}

struct StereoCalibrator::Observations {
    Points3 board;
    Points2 left, right;
};

struct StereoCalibrator::Solution {
    Eye left, right;
    cv::Mat rotation, translation, errors;
    double rms = 0;
};

StereoCalibrator::Solution StereoCalibrator::fit(const Observations& o, bool same_lenses) const {
    const cv::Size size(width_, height_);
    const int lens = same_lenses ? cv::CALIB_FIX_K3 | cv::CALIB_ZERO_TANGENT_DIST
                                 : lensFlags(options_.coefficients);
    Solution s;
    s.left = calibrateEye(o.board, o.left, size, lens);
    s.right = calibrateEye(o.board, o.right, size, lens);
    cv::Mat e, f;
    s.rms = cv::stereoCalibrate(
        o.board, o.left, o.right, s.left.matrix, s.left.distortion, s.right.matrix,
        s.right.distortion, size, s.rotation, s.translation, e, f, s.errors,
        lens | cv::CALIB_USE_INTRINSIC_GUESS | (same_lenses ? cv::CALIB_SAME_FOCAL_LENGTH : 0),
        cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 60, 1e-6));
    return s;
}

Status StereoCalibrator::solve(const std::vector<std::size_t>& used,
                               CalibrationReport& report) const {
    Observations o;
    for (const std::size_t i : used) {
        std::vector<cv::Point3f> points;
        for (const int id : views_[i].ids) {
            const auto p = board_.point(id);
            points.emplace_back(static_cast<float>(p[0]), static_cast<float>(p[1]), 0.0F);
        }
        o.board.push_back(std::move(points));
        o.left.push_back(asPoints(views_[i].left));
        o.right.push_back(asPoints(views_[i].right));
    }
    try {
        report.same_lenses = options_.freedom != LensFreedom::kFree;
        Solution s = fit(o, report.same_lenses);
        if (options_.freedom == LensFreedom::kAuto) {
            Solution free = fit(o, false);
            if (free.rms < kWorthFreedom * s.rms) {
                report.same_lenses = false;
                s = std::move(free);
            }
        }
        report.left_rms_px = s.left.rms;
        report.right_rms_px = s.right.rms;
        report.stereo_rms_px = s.rms;
        report.focal_sigma = std::max(s.left.focal_sigma, s.right.focal_sigma);
        for (std::size_t k = 0; k < used.size(); ++k) {
            report.views[used[k]].left_px = s.errors.at<double>(static_cast<int>(k), 0);
            report.views[used[k]].right_px = s.errors.at<double>(static_cast<int>(k), 1);
        }
        report.epipolar_rms_px = epipolarRms(s.left, s.right, s.rotation, s.translation,
                                             cv::Size(width_, height_), o.left, o.right);
        StereoCalibration& c = report.calibration;
        c.width = width_;
        c.height = height_;
        const int coefficients = report.same_lenses ? 4 : options_.coefficients;
        setEye(c.left, s.left.matrix, s.left.distortion, coefficients);
        setEye(c.right, s.right.matrix, s.right.distortion, coefficients);
        for (int i = 0; i < 9; ++i) c.right_from_left[i] = s.rotation.at<double>(i / 3, i % 3);
        for (int i = 0; i < 3; ++i) c.translation_mm[i] = s.translation.at<double>(i);
    } catch (const cv::Exception& error) {
        return {ErrorCode::kCalibrationMisfit, "no calibration fits the views: " + error.err};
    }
    return {};
}

Status StereoCalibrator::calibrate(CalibrationReport& report) const {
    report = {};
    if (Status s = board_.check(); !s.ok())
        return s;
    if (options_.coefficients != 4 && options_.coefficients != 5 && options_.coefficients != 8)
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
        const std::vector<std::size_t> outliers = outliersOf(used, report.views);
        if (outliers.empty() || round == kRounds - 1)
            break;  // what is reported was computed with all views that are not rejected
        for (const std::size_t i : outliers) {
            report.views[i].rejected = true;
            used.erase(std::find(used.begin(), used.end(), i));
        }
        if (!enough())
            return tooFew(" usable");
    }
    return judge(report, options_);
}

}  // namespace kova::camera
