#include "app/geometry.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace kova::app {

std::optional<QSize> windowSizeForScreen(int screen_width, int screen_height) {
    constexpr int kDesignWidth = 2500;
    constexpr int kDesignHeight = 1400;
    if (screen_width >= kDesignWidth && screen_height >= kDesignHeight)
        return std::nullopt;
    const float scale = 1.1f * std::max(static_cast<float>(kDesignWidth) / screen_width,
                                        static_cast<float>(kDesignHeight) / screen_height);
    return QSize(truncated(kDesignWidth / scale), truncated(kDesignHeight / scale));
}

Size2_<int> imagePixel(Size2_<int> view_pixel, float ratio_x, float ratio_y) {
    return {truncated(static_cast<float>(view_pixel.x + 1) / ratio_x - 1.0),
            truncated(static_cast<float>(view_pixel.y + 1) / ratio_y - 1.0)};
}

std::optional<Size3_<float>> cloudPoint(const float* cloud, int width, int height,
                                        Size2_<int> pixel) {
    if (!cloud || pixel.x < 0 || pixel.y < 0 || pixel.x >= width || pixel.y >= height)
        return std::nullopt;
    const std::size_t at =
        3 * (static_cast<std::size_t>(pixel.x) +
             static_cast<std::size_t>(width) * static_cast<std::size_t>(pixel.y));
    return Size3_<float>{cloud[at], cloud[at + 1], cloud[at + 2]};
}

float distanceBetween(Size3_<float> a, Size3_<float> b) {
    const float dx = a.x - b.x;
    const float dy = a.y - b.y;
    const float dz = a.z - b.z;
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

QSize topViewSize(const bino::ObstacleDetectionTopViewParameters& parameters) {
    return {
        truncated(2 * parameters.half_width * parameters.pixels_per_mm),
        truncated((parameters.far_distance - parameters.near_distance) * parameters.pixels_per_mm)};
}

float exposureTime(int position, int slider_maximum, float max_exposure_ms) {
    return static_cast<float>(position) * max_exposure_ms / static_cast<float>(slider_maximum);
}

int exposurePosition(float exposure_ms, int slider_maximum, float max_exposure_ms,
                     ExposureRounding rounding) {
    if (!(max_exposure_ms > 0))
        return 0;
    const float position = static_cast<float>(slider_maximum) * exposure_ms / max_exposure_ms;
    return truncated(rounding == ExposureRounding::nearest ? position + 0.5 : position);
}

void setObstacleHeight(bino::ObstacleDetectionParameters& parameters, int spin_box) {
    parameters.obstacle_min_height = static_cast<float>(spin_box * 0.0008 + 0.002);
    parameters.obstacle_foot_height = static_cast<float>(spin_box * 0.00045 + 0.0005);
}

void setGroundArea(bino::ObstacleDetectionParameters& parameters, int spin_box) {
    parameters.ground_min_region = (spin_box + 1) * 5;
    parameters.ground_min_support = static_cast<std::uint8_t>(spin_box * 8 + 5);
}

}  // namespace kova::app
