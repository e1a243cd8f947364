#pragma once

#include <cstdint>

#include "camera/base/disparity.h"
#include "camera/base/image.h"

namespace kova::camera {

/// Completes a disparity map: what is missing takes the disparity of the measured pixel that is
/// nearest along the picture, where a step costs kFillStep and every change of the grey value its
/// size (a geodesic distance; after Criminisi et al. 2010). So values do not cross edges of the
/// picture as long as there is another way. kTooNearDisparity stays and is not passed on.
///
/// Distances are found by sweeps: along each row to the right and to the left, then along each
/// column down and up, kFillRounds times. Rows, and columns, do not depend on each other, so the
/// result is the same on every CPU and for every number of threads.
class EdgeAwareFill {
public:
    static constexpr int kFillStep = 2;
    static constexpr int kFillRounds = 2;

    /// @param grey        the left picture, of the map's size
    /// @param confidence  becomes kFilledConfidence where a disparity was completed
    void fill(const ImageView<const std::uint8_t>& grey, DisparityMap& map);

private:
    Image<std::uint16_t> distance_;
};

}  // namespace kova::camera
