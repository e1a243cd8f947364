#include "tools/detection_json.h"

#include <nlohmann/json.hpp>

#include <cmath>

namespace kova::tools {

namespace {

using json = nlohmann::ordered_json;

/// A number in steps of 0.1, 0.01 or 0.001; null for what is not finite.
json number(double value, double step) {
    if (!std::isfinite(value))
        return nullptr;
    // Divided rather than multiplied: 0.3, not 0.30000000000000004.
    const double rounded = std::round(value / step) / std::round(1 / step);
    return rounded == 0 ? 0.0 : rounded;  // no "-0.0"
}

json millimetres(double value) {
    if (!std::isfinite(value))
        return nullptr;
    return static_cast<std::int64_t>(std::llround(value));
}

const char* nameOf(camera::GroundState state) {
    switch (state) {
        case camera::GroundState::kFound:
            return "found";
        case camera::GroundState::kHeld:
            return "held";
        default:
            return "lost";
    }
}

const char* nameOf(camera::ColumnState state) {
    switch (state) {
        case camera::ColumnState::kFree:
            return "free";
        case camera::ColumnState::kOccupied:
            return "occupied";
        case camera::ColumnState::kTooNear:
            return "too_near";
        default:
            return "unknown";
    }
}

json groundJson(const camera::GroundEstimate& ground) {
    json out;
    out["state"] = nameOf(ground.state);
    if (ground.state == camera::GroundState::kLost)
        return out;
    out["pitch_deg"] = number(ground.pitch_deg, 0.01);
    out["roll_deg"] = number(ground.roll_deg, 0.01);
    out["height_mm"] = millimetres(ground.height_mm);
    out["flat"] = ground.model.flat;
    out["support"] = number(ground.support, 0.001);
    out["area"] = number(ground.area, 0.001);
    if (ground.state == camera::GroundState::kHeld)
        out["since_seen_ns"] = ground.since_seen_ns;
    return out;
}

json columnJson(const camera::ColumnRange& column) {
    json out;
    out["x"] = {column.x_begin, column.x_end};
    out["state"] = nameOf(column.state);
    if (column.stixel >= 0) {
        out["distance_mm"] = millimetres(column.distance_mm);
        out["sigma_mm"] = millimetres(column.sigma_mm);
        out["ahead_mm"] = millimetres(column.ahead_mm);
        out["lateral_mm"] = millimetres(column.lateral_mm);
    }
    out["free_mm"] = millimetres(column.free_mm);
    return out;
}

json obstacleJson(const camera::Obstacle& o) {
    json out;
    out["id"] = o.id;
    out["age"] = o.age;
    out["ahead_mm"] = millimetres(o.ahead_mm);
    out["lateral_mm"] = millimetres(o.lateral_mm);
    out["distance_mm"] = millimetres(o.distance_mm);
    out["sigma_mm"] = millimetres(o.sigma_mm);
    out["width_mm"] = millimetres(o.width_mm);
    out["low_mm"] = millimetres(o.low_mm);
    out["high_mm"] = millimetres(o.high_mm);
    out["confidence"] = number(o.confidence, 0.01);
    out["box"] = {o.x_begin, o.y_top, o.x_end, o.y_bottom};
    return out;
}

}  // namespace

std::string detectionJson(int index, const camera::DetectionFrame& frame) {
    json out;
    out["frame"] = index;
    out["t_ns"] = frame.t_ns;
    out["width"] = frame.width;
    out["height"] = frame.height;
    const camera::DetectionHealth& health = frame.health;
    out["health"] = {{"too_dark", health.too_dark},
                     {"saturated", health.saturated},
                     {"low_texture", health.low_texture},
                     {"brightness", number(health.brightness, 0.1)},
                     {"saturated_part", number(health.saturated_part, 0.001)},
                     {"measured_part", number(health.measured_part, 0.001)},
                     {"dropped_frames", health.dropped_frames}};
    out["ground"] = groundJson(frame.ground);
    if (frame.nearest.exists)
        out["nearest"] = {{"ahead_mm", millimetres(frame.nearest.ahead_mm)},
                          {"sigma_mm", millimetres(frame.nearest.sigma_mm)},
                          {"obstacle", frame.nearest.obstacle_id},
                          {"zone", camera::zoneName(frame.nearest.zone)}};
    else
        out["nearest"] = nullptr;
    out["obstacles"] = json::array();
    for (const camera::Obstacle& o : frame.obstacles) out["obstacles"].push_back(obstacleJson(o));
    out["drops"] = json::array();
    for (const camera::Drop& drop : frame.drops)
        out["drops"].push_back({{"column", drop.column},
                                {"ahead_mm", millimetres(drop.ahead_mm)},
                                {"lateral_mm", millimetres(drop.lateral_mm)},
                                {"depth_mm", millimetres(drop.depth_mm)}});
    out["columns"] = json::array();
    for (const camera::ColumnRange& column : frame.columns)
        out["columns"].push_back(columnJson(column));
    return out.dump();
}

}  // namespace kova::tools
