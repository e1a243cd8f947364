#pragma once

#include <cmath>
#include <cstdint>

namespace kova::camera {

/// Half width of the driving corridor [mm].
constexpr float kSideRangeMm = 600;
/// Borders of the warning zones, distances ahead along the ground [mm].
constexpr float kNearMm = 1000;
constexpr float kMidMm = 2500;
constexpr float kFarMm = 5000;

/// How urgent something is, by its distance. A border belongs to the more urgent side, but for
/// kNearMm itself, which is not below it.
enum class Zone : std::uint8_t {
    kBelowNear,  ///< < near
    kNearToMid,  ///< near .. mid
    kMidToFar,   ///< mid .. far
    kBeyondFar,  ///< > far
};

constexpr Zone zoneOf(float distance_mm) {
    return distance_mm < kNearMm   ? Zone::kBelowNear
           : distance_mm <= kMidMm ? Zone::kNearToMid
           : distance_mm <= kFarMm ? Zone::kMidToFar
                                   : Zone::kBeyondFar;
}

/// Whether something at this lateral offset from the camera stands in the driving corridor.
inline bool insideSideRange(float lateral_mm) {
    return std::fabs(lateral_mm) <= kSideRangeMm;
}

/// "below_near", "near_to_mid", "mid_to_far", "beyond_far".
constexpr const char* zoneName(Zone zone) {
    switch (zone) {
        case Zone::kBelowNear:
            return "below_near";
        case Zone::kNearToMid:
            return "near_to_mid";
        case Zone::kMidToFar:
            return "mid_to_far";
        default:
            return "beyond_far";
    }
}

}  // namespace kova::camera
