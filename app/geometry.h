#pragma once

#include <QSize>

#include <cmath>
#include <limits>
#include <optional>

#include "sdk/records.h"
#include "sdk/size.h"

/// Arithmetic of the window, as functions of their arguments alone.
namespace kova::app {

/// "No point": neither pressed nor released.
constexpr Size2_<int> kNoPoint{-1, -1};

/// The integer part; values beyond the range of int give its limits, NaN gives 0.
inline int truncated(double value) {
    if (std::isnan(value))
        return 0;
    if (value >= std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (value <= std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

/// The size that a window laid out for 2500 x 1400 pixels takes on a smaller screen, a tenth of
/// which stays free; nothing when the screen is large enough.
std::optional<QSize> windowSizeForScreen(int screen_width, int screen_height);

/// View pixels per image pixel; infinite for an image without extent.
inline float displayRatio(int view_extent, int image_extent) {
    return static_cast<float>(view_extent) / static_cast<float>(image_extent);
}

/// The image pixel under a pixel of a view that stretches the image over its whole area.
Size2_<int> imagePixel(Size2_<int> view_pixel, float ratio_x, float ratio_y);

/// The point of an organised cloud at a pixel; nothing for a pixel outside the picture or where
/// there is no cloud.
///
/// @param cloud  width x height x 3 floats, rows in order, or null
std::optional<Size3_<float>> cloudPoint(const float* cloud, int width, int height,
                                        Size2_<int> pixel);

/// Length of the straight line between two points, in single precision.
float distanceBetween(Size3_<float> a, Size3_<float> b);

/// Size of the top view [px].
QSize topViewSize(const bino::ObstacleDetectionTopViewParameters& parameters);

/// Exposure [ms] that a position of the slider stands for.
float exposureTime(int position, int slider_maximum, float max_exposure_ms);

enum class ExposureRounding { truncate, nearest };

/// Position of the slider for an exposure [ms]; 0 where the longest exposure is not positive, as
/// it may be for a camera without exposure control.
int exposurePosition(float exposure_ms, int slider_maximum, float max_exposure_ms,
                     ExposureRounding rounding);

/// Threshold of the confidence slider, which runs the other way: 100 removes nothing.
inline float confidenceThreshold(int position) {
    return static_cast<float>(100 - position) / 100.0f;
}

/// Writes the "Obstacle Min Height" of the spin box into the parameters.
void setObstacleHeight(bino::ObstacleDetectionParameters& parameters, int spin_box);

/// Writes the "Ground Min Area" of the spin box into the parameters.
void setGroundArea(bino::ObstacleDetectionParameters& parameters, int spin_box);

}  // namespace kova::app
