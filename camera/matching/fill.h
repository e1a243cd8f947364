#pragma once

#include <vector>

#include "camera/base/disparity.h"
#include "camera/base/image.h"

namespace kova::camera {

/// Completes a disparity map: what is missing takes the disparity of the measured pixel that is
/// nearest along the picture, where a step costs kFillStep and every change of the grey value its
/// size (a geodesic distance, found by raster scans; after Criminisi et al. 2010). So values do not
/// cross edges of the picture as long as there is another way. kTooNearDisparity stays and is not
/// passed on.
class EdgeAwareFill {
public:
    static constexpr int kFillStep = 2;

    /// @param confidence  becomes kFilledConfidence where a disparity was completed
    void fill(const ImageView<const std::uint8_t>& grey, DisparityMap& map);

private:
    void reach(const ImageView<const std::uint8_t>& grey, DisparityMap& map, int x, int y,
               int from_x, int from_y);

    Image<std::uint16_t> distance_;
};

}  // namespace kova::camera
