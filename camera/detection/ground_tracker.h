#pragma once

#include "camera/detection/detection_frame.h"
#include "camera/detection/gravity_filter.h"
#include "camera/detection/ground_fit.h"

namespace kova::camera {

/// The ground over time. Between frames the plane is turned by the gyroscope; when a frame shows no
/// ground, the last plane is held for kGroundHoldNs, then there is none.
class GroundTracker {
public:
    static constexpr std::int64_t kGroundHoldNs = 500'000'000;

    void reset();

    /// @param gravity   null: the inertial unit is not used
    /// @param temporal  false: this frame stands alone
    /// @param finer     see GroundFitter::fit()
    GroundEstimate update(const CellGrid& grid, const CellGrid& finer,
                          const RectifiedGeometry& geometry, const GravityFilter* gravity,
                          std::int64_t t_ns, float min_support, bool temporal);

private:
    GroundFitter fitter_;
    GroundModel last_;
    std::int64_t seen_ns_ = 0;
    bool tracked_ = false;
};

}  // namespace kova::camera
