#pragma once

#include <cstdint>

#include "camera/base/image.h"

namespace kova::camera {

/// What the detection yields for one frame; shared by the views, the top view and the exports.
struct DetectionFrame {
    std::int64_t t_ns = 0;
    int width = 0;   ///< [px]
    int height = 0;  ///< [px]
    /// 0 obstacle, 127 not sure, 255 ground; shape (height, width)
    Image<std::uint8_t> ground_map;
};

}  // namespace kova::camera
