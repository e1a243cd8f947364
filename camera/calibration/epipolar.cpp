#include "camera/calibration/epipolar.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "camera/base/log.h"

namespace kova::camera {

namespace {

constexpr int kFewestMatches = 25;
constexpr int kMostFeatures = 1000;
constexpr double kGoodRows = 0.6;  // median, where matching begins to lose pixels
constexpr double kBadRows = 1.5;   // median, where it fails

double median(std::vector<double> values) {
    if (values.empty())
        return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

struct Features {
    std::vector<cv::KeyPoint> points;
    cv::Mat descriptors;
};

Features featuresOf(cv::Feature2D& detector, const ImageView<const std::uint8_t>& view) {
    const cv::Mat image(view.height, view.width, CV_8U, const_cast<std::uint8_t*>(view.data),
                        static_cast<std::size_t>(view.stride));
    Features f;
    detector.detect(image, f.points);
    cv::KeyPointsFilter::retainBest(f.points, kMostFeatures);
    detector.compute(image, f.points, f.descriptors);
    return f;
}

/// Nearest right feature of each left one, if it is much nearer than the next.
std::vector<int> nearest(const Features& from, const Features& to) {
    std::vector<std::vector<cv::DMatch>> pairs;
    cv::BFMatcher(cv::NORM_HAMMING).knnMatch(from.descriptors, to.descriptors, pairs, 2);
    std::vector<int> index(from.points.size(), -1);
    for (const auto& p : pairs)
        if (p.size() == 2 && p[0].distance < 0.8F * p[1].distance)
            index[static_cast<std::size_t>(p[0].queryIdx)] = p[0].trainIdx;
    return index;
}

void matchFeatures(const Features& left, const Features& right, std::vector<cv::Point2f>& in_left,
                   std::vector<cv::Point2f>& in_right) {
    if (left.points.size() < 2 || right.points.size() < 2)
        return;
    const std::vector<int> forward = nearest(left, right);
    const std::vector<int> backward = nearest(right, left);
    for (std::size_t i = 0; i < forward.size(); ++i)
        if (forward[i] >= 0 &&
            backward[static_cast<std::size_t>(forward[i])] == static_cast<int>(i)) {
            in_left.push_back(left.points[i].pt);
            in_right.push_back(right.points[static_cast<std::size_t>(forward[i])].pt);
        }
}

std::string px(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f px", value);
    return text;
}

}  // namespace

Status EpipolarReport::status() const {
    if (verdict == EpipolarVerdict::kMisfit || verdict == EpipolarVerdict::kSwapped)
        return {ErrorCode::kCalibrationMisfit, words};
    return {};
}

void EpipolarCheck::add(const ImageView<const std::uint8_t>& left,
                        const ImageView<const std::uint8_t>& right) {
    if (left.width != right.width || left.height != right.height || left.width < 32 ||
        left.height < 32)
        return;
    try {
        const cv::Ptr<cv::AKAZE> detector =
            cv::AKAZE::create(cv::AKAZE::DESCRIPTOR_MLDB_UPRIGHT, 0, 3, 0.0005F, 2, 2);
        std::vector<cv::Point2f> in_left, in_right;
        matchFeatures(featuresOf(*detector, left), featuresOf(*detector, right), in_left, in_right);
        if (in_left.size() < 16)
            return;
        std::vector<std::uint8_t> agrees;
        cv::findFundamentalMat(in_left, in_right, cv::FM_RANSAC, 1.0, 0.99, agrees);
        const auto agreeing = std::count(agrees.begin(), agrees.end(), std::uint8_t{1});
        // Where most matches agree with no geometry, those that do are chance.
        if (static_cast<double>(agreeing) < 0.5 * static_cast<double>(in_left.size()))
            return;
        for (std::size_t i = 0; i < agrees.size(); ++i)
            if (agrees[i]) {
                dy_px_.push_back(in_left[i].y - in_right[i].y);
                disparity_px_.push_back(in_left[i].x - in_right[i].x + offset_);
            }
    } catch (const cv::Exception& e) {
        logWarning("calibration", "features cannot be compared: " + e.err);
    }
}

EpipolarReport EpipolarCheck::report() const {
    EpipolarReport r;
    r.matches = static_cast<int>(dy_px_.size());
    if (r.matches < kFewestMatches) {
        r.words = "cannot tell whether the calibration fits: only " + std::to_string(r.matches) +
                  " features are seen by both eyes; show a scene with more texture";
        return r;
    }
    std::vector<double> sizes;
    int near_row = 0, behind = 0;
    for (std::size_t i = 0; i < dy_px_.size(); ++i) {
        sizes.push_back(std::abs(dy_px_[i]));
        near_row += sizes.back() <= 1;
        behind += disparity_px_[i] < -1.5;
    }
    r.median_dy_px = median(dy_px_);
    r.median_abs_dy_px = median(sizes);
    r.inlier_share = static_cast<double>(near_row) / r.matches;
    r.behind_share = static_cast<double>(behind) / r.matches;
    const std::string offset = "the rows of both eyes differ by " + px(r.median_abs_dy_px) +
                               " (median of " + std::to_string(r.matches) + " features)";
    if (r.behind_share > 0.6) {
        r.verdict = EpipolarVerdict::kSwapped;
        r.words =
            "the calibration does not fit: most features lie farther right in the right picture; "
            "the eyes are swapped, or the cameras have been turned since calibration";
    } else if (r.median_abs_dy_px > kBadRows) {
        r.verdict = EpipolarVerdict::kMisfit;
        r.words = "the calibration does not fit: " + offset +
                  "; is it this camera's, at this resolution, and was the camera knocked? "
                  "Calibrate again";
    } else if (r.median_abs_dy_px > kGoodRows) {
        r.verdict = EpipolarVerdict::kFitsPoorly;
        r.words = "the calibration fits poorly: " + offset + "; calibrating again would pay";
    } else {
        r.verdict = EpipolarVerdict::kFits;
        r.words = "the calibration fits: " + offset;
    }
    return r;
}

Status checkPictureSize(int calibrated_width, int calibrated_height, int width, int height) {
    if (calibrated_width == width && calibrated_height == height)
        return {};
    std::string words = "the calibration was made for pictures of " +
                        std::to_string(calibrated_width) + "x" + std::to_string(calibrated_height) +
                        ", these are " + std::to_string(width) + "x" + std::to_string(height);
    if (calibrated_width * height == calibrated_height * width)
        words += ", the same view at another resolution; scale it or calibrate at this one";
    else if (calibrated_width == 2 * width && calibrated_height == height)
        words += "; it seems to be made from pictures that hold both eyes";
    else if (2 * calibrated_width == width && calibrated_height == height)
        words += "; the picture seems to hold both eyes";
    else
        words += "; calibrate at this resolution";
    return {ErrorCode::kCalibrationMisfit, words};
}

}  // namespace kova::camera
