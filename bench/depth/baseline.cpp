#include "bench/depth/baseline.h"

#include <opencv2/calib3d.hpp>

#include "camera/base/disparity.h"

namespace kova::bench {

namespace {

cv::Mat wrap(const camera::ImageView<const std::uint8_t>& view) {
    return {view.height, view.width, CV_8U, const_cast<std::uint8_t*>(view.data),
            static_cast<std::size_t>(view.stride)};
}

}  // namespace

void matchBaseline(const Baseline& baseline, const camera::ImageView<const std::uint8_t>& left,
                   const camera::ImageView<const std::uint8_t>& right, int levels, bool padded,
                   camera::Image<std::uint16_t>& disparity) {
    const int area = baseline.block * baseline.block;
    const auto matcher = cv::StereoSGBM::create(
        0, levels, baseline.block, 8 * area, 32 * area, 1, 63, 10, 100, 2,
        baseline.three_way ? cv::StereoSGBM::MODE_SGBM_3WAY : cv::StereoSGBM::MODE_HH4);
    cv::Mat l = wrap(left), r = wrap(right), found;
    const int border = padded ? levels : 0;
    if (padded) {
        cv::copyMakeBorder(l, l, 0, 0, border, 0, cv::BORDER_REPLICATE);
        cv::copyMakeBorder(r, r, 0, 0, border, 0, cv::BORDER_REPLICATE);
    }
    matcher->compute(l, r, found);
    disparity.resize(left.width, left.height);
    for (int y = 0; y < left.height; ++y)
        for (int x = 0; x < left.width; ++x) {
            const auto d = found.at<std::int16_t>(y, x + border);
            disparity.at(x, y) = d < 0 ? camera::kInvalidDisparity : static_cast<std::uint16_t>(d);
        }
}

}  // namespace kova::bench
