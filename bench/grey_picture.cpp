#include "bench/grey_picture.h"

#include <opencv2/imgcodecs.hpp>

#include <cstring>

namespace kova::bench {

bool readGrey(const std::filesystem::path& path, camera::Image<std::uint8_t>& image) {
    const cv::Mat picture = cv::imread(path.string(), cv::IMREAD_GRAYSCALE);
    if (picture.empty())
        return false;
    image.resize(picture.cols, picture.rows);
    for (int y = 0; y < picture.rows; ++y)
        std::memcpy(image.row(y), picture.ptr(y), static_cast<std::size_t>(picture.cols));
    return true;
}

}  // namespace kova::bench
