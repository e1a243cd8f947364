#include "camera/matching/opencv_matcher.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdlib>

namespace kova::camera {

namespace {

cv::Mat wrap(const ImageView<const std::uint8_t>& view) {
    return {view.height, view.width, CV_8U, const_cast<std::uint8_t*>(view.data),
            static_cast<std::size_t>(view.stride)};
}

int roundedUp(int value, int step) {
    return (value + step - 1) / step * step;
}

class OpenCvMatcher : public Matcher {
public:
    Status match(const ImageView<const std::uint8_t>& left,
                 const ImageView<const std::uint8_t>& right, const MatchParameters& parameters,
                 DisparityMap& map) override;

private:
    void search(const cv::Mat& left, const cv::Mat& right, int min_disparity, int count);
    void copyOut(int scale, const MatchParameters& parameters, DisparityMap& map) const;
    void rate(const ImageView<const std::uint8_t>& left, DisparityMap& map) const;
    static void removeUnsure(float threshold, DisparityMap& map);
    static void fill(DisparityMap& map);

    cv::Ptr<cv::StereoSGBM> sgbm_;
    cv::Mat half_left_, half_right_;
    cv::Mat disparity_;  ///< 16-bit signed, 1/16 px
};

void OpenCvMatcher::search(const cv::Mat& left, const cv::Mat& right, int min_disparity,
                           int count) {
    if (!sgbm_)
        sgbm_ = cv::StereoSGBM::create(0, 16, 3, 8 * 9, 32 * 9, 1, 63, 10, 100, 2,
                                       cv::StereoSGBM::MODE_SGBM_3WAY);
    sgbm_->setMinDisparity(min_disparity);
    sgbm_->setNumDisparities(count);
    // Pictures no wider than the search have no disparity at all; OpenCV would refuse them.
    if (left.cols <= min_disparity + count || left.rows < 4) {
        disparity_.create(left.size(), CV_16S);
        disparity_.setTo((min_disparity - 1) * kDisparityScale);
        return;
    }
    sgbm_->compute(left, right, disparity_);
}

void OpenCvMatcher::copyOut(int scale, const MatchParameters& parameters, DisparityMap& map) const {
    const int lowest = parameters.min_disparity * kDisparityScale;
    const int end = parameters.max_disparity * kDisparityScale;
    for (int y = 0; y < map.disparity.height(); ++y) {
        const auto* in = disparity_.ptr<std::int16_t>(std::min(y / scale, disparity_.rows - 1));
        std::uint16_t* out = map.disparity.row(y);
        for (int x = 0; x < map.disparity.width(); ++x) {
            const int d = in[std::min(x / scale, disparity_.cols - 1)] * scale;
            out[x] = d >= lowest && d >= 0 && d < end ? static_cast<std::uint16_t>(d)
                                                      : kInvalidDisparity;
        }
    }
}

void OpenCvMatcher::rate(const ImageView<const std::uint8_t>& left, DisparityMap& map) const {
    constexpr int kRadius = 2;
    constexpr int kWeakGradient = 4;  // grey levels over two pixels
    const int width = map.disparity.width();
    const int height = map.disparity.height();
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int d = map.disparity.at(x, y);
            if (!isDisparity(static_cast<std::uint16_t>(d))) {
                map.confidence.at(x, y) = 0;
                continue;
            }
            int agreeing = 0;
            int gradient = 0;
            for (int v = std::max(0, y - kRadius); v <= std::min(height - 1, y + kRadius); ++v)
                for (int u = std::max(0, x - kRadius); u <= std::min(width - 1, x + kRadius); ++u)
                    agreeing += std::abs(map.disparity.at(u, v) - d) <= kDisparityScale;
            for (int u = std::max(1, x - kRadius); u <= std::min(width - 2, x + kRadius); ++u)
                gradient = std::max(gradient, std::abs(left.at(u + 1, y) - left.at(u - 1, y)));
            const int share = agreeing * kConfidenceScale / 25;
            map.confidence.at(x, y) = static_cast<std::uint8_t>(
                std::max(1, gradient < kWeakGradient ? share / 2 : share));
        }
}

void OpenCvMatcher::removeUnsure(float threshold, DisparityMap& map) {
    for (int y = 0; y < map.disparity.height(); ++y)
        for (int x = 0; x < map.disparity.width(); ++x)
            if (map.confidence.at(x, y) < threshold * kConfidenceScale) {
                map.disparity.at(x, y) = kInvalidDisparity;
                map.confidence.at(x, y) = 0;
            }
}

void OpenCvMatcher::fill(DisparityMap& map) {
    const int width = map.disparity.width();
    for (int y = 0; y < map.disparity.height(); ++y) {
        std::uint16_t* row = map.disparity.row(y);
        std::uint16_t before = kInvalidDisparity;
        for (int x = 0; x < width;) {
            if (isDisparity(row[x])) {
                before = row[x++];
                continue;
            }
            int end = x;
            while (end < width && !isDisparity(row[end])) ++end;
            const std::uint16_t after = end < width ? row[end] : kInvalidDisparity;
            // The reserved values are the largest, so the smaller is the farther or the only one.
            const std::uint16_t value = std::min(before, after);
            for (; x < end; ++x) {
                row[x] = value;
                map.confidence.at(x, y) = isDisparity(value) ? kFilledConfidence : 0;
            }
        }
    }
}

Status OpenCvMatcher::match(const ImageView<const std::uint8_t>& left,
                            const ImageView<const std::uint8_t>& right,
                            const MatchParameters& parameters, DisparityMap& map) {
    if (left.width != right.width || left.height != right.height)
        return {ErrorCode::kInvalidArgument, "matching: the pictures differ in size"};
    if (Status s = parameters.check(); !s.ok())
        return s;
    map.resize(left.width, left.height);
    if (left.empty())
        return {};
    const int scale = parameters.work_mode == WorkMode::kFast ? 2 : 1;
    const int lowest = parameters.min_disparity / scale;
    const int count = roundedUp((parameters.max_disparity + scale - 1) / scale - lowest, 16);
    try {
        if (scale == 2) {
            const cv::Size half((left.width + 1) / 2, (left.height + 1) / 2);
            cv::resize(wrap(left), half_left_, half, 0, 0, cv::INTER_AREA);
            cv::resize(wrap(right), half_right_, half, 0, 0, cv::INTER_AREA);
            search(half_left_, half_right_, lowest, count);
        } else {
            search(wrap(left), wrap(right), lowest, count);
        }
    } catch (const cv::Exception& e) {
        return {ErrorCode::kInvalidArgument, "matching: " + e.err};
    }
    copyOut(scale, parameters, map);
    rate(left, map);
    removeUnsure(parameters.confidence_threshold, map);
    if (parameters.fill)
        fill(map);
    return {};
}

}  // namespace

std::unique_ptr<Matcher> makeOpenCvMatcher() {
    return std::make_unique<OpenCvMatcher>();
}

}  // namespace kova::camera
