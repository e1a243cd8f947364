#include "camera/detection/ground_tracker.h"

namespace kova::camera {

namespace {

constexpr float kDegreesPerRadian = 57.29577951f;

GroundModel turned(const GroundModel& model, const Rotation& rotation,
                   const RectifiedGeometry& geometry) {
    std::array<double, 3> down;
    for (std::size_t r = 0; r < 3; ++r)
        down[r] = rotation[3 * r] * model.down[0] + rotation[3 * r + 1] * model.down[1] +
                  rotation[3 * r + 2] * model.down[2];
    GroundModel next = GroundModel::fromNormal(down, model.height_mm, geometry);
    next.flat = model.flat;
    next.knot = model.knot;
    next.knot_offset = model.knot_offset;
    next.stretch = model.stretch;
    next.stretch_per_px = model.stretch_per_px;
    return next;
}

}  // namespace

void GroundTracker::reset() {
    tracked_ = false;
}

GroundEstimate GroundTracker::update(const CellGrid& grid, const CellGrid& finer,
                                     const RectifiedGeometry& geometry,
                                     const GravityFilter* gravity, std::int64_t t_ns,
                                     float min_support, bool temporal) {
    if (!temporal || (tracked_ && (t_ns < seen_ns_ || t_ns - seen_ns_ > kGroundHoldNs)))
        tracked_ = false;
    GroundPrior prior;
    if (gravity && gravity->ready()) {
        prior.has_gravity = true;
        prior.down = gravity->down();
    }
    if (tracked_) {
        if (gravity)
            last_ = turned(last_, gravity->rotation(), geometry);
        prior.has_track = true;
        prior.track = last_;
    }
    const GroundFit fit = fitter_.fit(grid, finer, geometry, prior, min_support);

    GroundEstimate estimate;
    if (fit.found) {
        estimate.state = GroundState::kFound;
        last_ = fit.model;
        seen_ns_ = t_ns;
        tracked_ = true;
    } else if (tracked_) {
        estimate.state = GroundState::kHeld;
        estimate.since_seen_ns = t_ns - seen_ns_;
    } else {
        return estimate;
    }
    estimate.model = last_;
    estimate.support = fit.support;
    estimate.area = fit.area;
    estimate.height_mm = static_cast<float>(last_.height_mm);
    estimate.pitch_deg = static_cast<float>(last_.pitch()) * kDegreesPerRadian;
    estimate.roll_deg = static_cast<float>(last_.roll()) * kDegreesPerRadian;
    return estimate;
}

}  // namespace kova::camera
