#include "bench/depth/metrics.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace kova::bench {

using camera::Image;
using camera::ImageView;
using camera::isDisparity;

Image<std::uint8_t> thinForeground(const ImageView<const float>& truth) {
    cv::Mat known(truth.height, truth.width, CV_32F);
    for (int y = 0; y < truth.height; ++y)
        for (int x = 0; x < truth.width; ++x) known.at<float>(y, x) = std::max(truth.at(x, y), 0.F);
    // Sparse truth has holes everywhere; what surrounds a pixel is the farthest known value.
    cv::Mat eroded = cv::Mat::zeros(known.size(), CV_32F), opened;
    constexpr int kHalf = 7;
    for (int y = 0; y < truth.height; ++y) {
        for (int x = 0; x < truth.width; ++x) {
            float least = std::numeric_limits<float>::max();
            for (int v = std::max(0, y - kHalf); v <= std::min(truth.height - 1, y + kHalf); ++v)
                for (int u = std::max(0, x - kHalf); u <= std::min(truth.width - 1, x + kHalf); ++u)
                    if (truth.at(u, v) >= 0)
                        least = std::min(least, truth.at(u, v));
            eroded.at<float>(y, x) = least < 1e6F ? least : 0;
        }
    }
    cv::dilate(eroded, opened, cv::Mat::ones(2 * kHalf + 1, 2 * kHalf + 1, CV_8U));
    Image<std::uint8_t> thin(truth.width, truth.height);
    for (int y = 0; y < truth.height; ++y)
        for (int x = 0; x < truth.width; ++x)
            thin.at(x, y) = truth.at(x, y) >= 0 && truth.at(x, y) > opened.at<float>(y, x) + 4;
    return thin;
}

DepthErrors measureErrors(const ImageView<const std::uint16_t>& disparity,
                          const ImageView<const float>& truth,
                          const ImageView<const std::uint8_t>& thin) {
    double known = 0, found = 0, bad1 = 0, bad2 = 0, d1 = 0, sum = 0, squares = 0, near = 0;
    double thin_known = 0, thin_found = 0, thin_bad = 0;
    for (int y = 0; y < truth.height; ++y) {
        for (int x = 0; x < truth.width; ++x) {
            const double t = truth.at(x, y);
            if (t < 0)
                continue;
            ++known;
            thin_known += thin.at(x, y);
            if (!isDisparity(disparity.at(x, y)))
                continue;
            const double error = disparity.at(x, y) / double(camera::kDisparityScale) - t;
            const double size = std::abs(error);
            ++found;
            bad1 += size > 1;
            bad2 += size > 2;
            d1 += size > 3 && size > 0.05 * t;
            if (size <= 3) {
                ++near;
                sum += error;
                squares += error * error;
            }
            thin_found += thin.at(x, y);
            thin_bad += thin.at(x, y) && size > 2;
        }
    }
    const auto percent = [](double part, double whole) {
        return whole > 0 ? 100 * part / whole : 0;
    };
    DepthErrors e;
    e.pixels = known;
    e.density = percent(found, known);
    e.bad1 = percent(bad1, found);
    e.bad2 = percent(bad2, found);
    e.d1 = percent(d1, found);
    const double mean = near > 0 ? sum / near : 0;
    e.rms = near > 0 ? std::sqrt(std::max(0.0, squares / near - mean * mean)) : 0;
    e.thin_pixels = thin_known;
    e.thin_density = percent(thin_found, thin_known);
    e.thin_bad2 = percent(thin_bad, thin_found);
    return e;
}

void fillRows(Image<std::uint16_t>& disparity) {
    const int width = disparity.width();
    for (int y = 0; y < disparity.height(); ++y) {
        std::uint16_t* row = disparity.row(y);
        int x = 0;
        while (x < width) {
            if (isDisparity(row[x])) {
                ++x;
                continue;
            }
            int end = x;
            while (end < width && !isDisparity(row[end])) ++end;
            std::uint16_t value = 0;
            if (x > 0 && end < width)
                value = std::min(row[x - 1], row[end]);
            else if (x > 0)
                value = row[x - 1];
            else if (end < width)
                value = row[end];
            for (int i = x; i < end; ++i)
                row[i] = x == 0 && end == width && y > 0 ? disparity.at(i, y - 1) : value;
            x = end;
        }
    }
}

}  // namespace kova::bench
