#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "camera/base/image.h"
#include "camera/detection/ground_model.h"
#include "camera/detection/zones.h"

namespace kova::camera {

/// What the detection yields for one frame: the one record that the image views, the top view and
/// the exports share.
///
/// Two frames of reference are used. The camera's: x right, y down, z forward from the left
/// rectified camera. The ground's: its origin is the foot of the perpendicular from the camera to
/// the ground, "ahead" is the optical axis laid on the ground, "lateral" is to the right of it,
/// "over the ground" is up. Without a ground the camera's axes stand in. Distances are in mm.
/// Pixel ranges are half-open: [begin, end).

enum class GroundState : std::uint8_t {
    kLost,   ///< none: nothing is called ground, obstacles are judged without it
    kHeld,   ///< not seen in this frame, predicted from those before
    kFound,  ///< measured in this frame
};

enum class ColumnState : std::uint8_t {
    kUnknown,   ///< not seen well enough to say; not free
    kFree,      ///< ground is seen without a gap as far as `free_mm`, at least the far zone
    kOccupied,  ///< an obstacle stands at `distance_mm`
    kTooNear,   ///< something nearer than the disparity search can see
};

/// What makes a frame less trustworthy.
struct DetectionHealth {
    bool too_dark = false;     ///< median brightness below 12 of 255
    bool saturated = false;    ///< over a fifth of the picture is at the upper limit
    bool low_texture = false;  ///< under a quarter of the picture could be matched
    float brightness = 0;      ///< mean, 0..255
    float saturated_part = 0;  ///< of the picture, 0..1
    float measured_part = 0;   ///< part of the cells (stixel width x row bin) with depth, 0..1
    std::int64_t dropped_frames = 0;  ///< since the frame before
};

/// The ground and how sure it is.
struct GroundEstimate {
    GroundState state = GroundState::kLost;
    GroundModel model;               ///< meaningful unless lost
    float pitch_deg = 0;             ///< the optical axis looks this much down
    float roll_deg = 0;              ///< the camera is turned clockwise by this much
    float height_mm = 0;             ///< of the left camera over the plane
    float support = 0;               ///< inliers / (inliers + confident cells clearly below), 0..1
    float area = 0;                  ///< inlying cells, part of the picture, 0..1
    std::int64_t since_seen_ns = 0;  ///< how long it has been held
};

/// An upright piece of surface in one column of the picture that passed every filter.
struct Stixel {
    int column = 0;  ///< of the `columns` list
    int x_begin = 0, x_end = 0;
    int y_top = 0, y_bottom = 0;
    float disparity = 0;     ///< depth disparity: fx * baseline / z [px]
    float sigma_px = 0;      ///< standard deviation of the disparity
    float distance_mm = 0;   ///< z in the camera's frame
    float sigma_mm = 0;      ///< standard deviation of the distance
    float ahead_mm = 0;      ///< in the ground's frame
    float lateral_mm = 0;    ///< in the ground's frame
    float low_mm = 0;        ///< lowest edge over the ground; NaN without a ground
    float high_mm = 0;       ///< highest edge over the ground; NaN without a ground
    float confidence = 0;    ///< 0..1
    bool too_near = false;   ///< nearer than the search can see: the distance is an upper bound
    bool confirmed = false;  ///< seen in 2 of the last 3 frames
    int obstacle_id = 0;     ///< of the obstacle that it is part of; 0: none
};

/// One column of the picture, one stixel wide.
struct ColumnRange {
    int x_begin = 0, x_end = 0;
    ColumnState state = ColumnState::kUnknown;
    float distance_mm = std::numeric_limits<float>::quiet_NaN();  ///< nearest confirmed obstacle, z
    float sigma_mm = std::numeric_limits<float>::quiet_NaN();
    float ahead_mm = std::numeric_limits<float>::quiet_NaN();
    float lateral_mm = std::numeric_limits<float>::quiet_NaN();
    float free_mm = 0;  ///< ground is seen without a gap from the picture's edge to here, ahead
    int stixel = -1;    ///< index of the nearest confirmed one, -1: none
};

/// Neighbouring obstacle stixels at about the same distance, followed from frame to frame.
struct Obstacle {
    int id = 0;             ///< stable while it is followed, from 1
    int age = 0;            ///< frames since it was seen first, this one included
    float ahead_mm = 0;     ///< nearest part, in the ground's frame
    float lateral_mm = 0;   ///< centre
    float distance_mm = 0;  ///< nearest part, z in the camera's frame
    float sigma_mm = 0;
    float width_mm = 0;
    float low_mm = 0;      ///< lowest edge over the ground; NaN without a ground
    float high_mm = 0;     ///< highest edge over the ground; NaN without a ground
    float confidence = 0;  ///< 0..1
    int x_begin = 0, x_end = 0, y_top = 0, y_bottom = 0;  ///< in the picture
};

/// A place where the surface lies lower than the ground: stairs, an edge, a hole.
struct Drop {
    int column = 0;
    float ahead_mm = 0;  ///< of its edge, in the ground's frame
    float lateral_mm = 0;
    float depth_mm = 0;  ///< below the ground
    int y_top = 0, y_bottom = 0;
};

/// The nearest obstacle inside the driving corridor.
struct NearestInCorridor {
    bool exists = false;
    float ahead_mm = 0;
    float sigma_mm = 0;
    int obstacle_id = 0;
    Zone zone = Zone::kBeyondFar;  ///< beyond far where there is none
};

struct DetectionFrame {
    std::int64_t t_ns = 0;        ///< start of exposure
    std::int64_t latency_ns = 0;  ///< from there to the end of detection; set by the pipeline
    int width = 0;                ///< [px]
    int height = 0;               ///< [px]
    int column_px = 0;            ///< width of a stixel column
    RectifiedGeometry geometry;   ///< of the picture
    DetectionHealth health;
    GroundEstimate ground;
    std::vector<ColumnRange> columns;  ///< from left to right
    std::vector<Stixel> stixels;       ///< by column, nearest first within one
    std::vector<Obstacle> obstacles;   ///< confirmed ones, nearest first
    std::vector<Drop> drops;           ///< by column
    NearestInCorridor nearest;
    /// 0 obstacle, 127 not sure, 255 ground; shape (height, width)
    Image<std::uint8_t> ground_map;
};

}  // namespace kova::camera
