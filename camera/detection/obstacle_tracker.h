#pragma once

#include <array>
#include <vector>

#include "camera/detection/detection_frame.h"
#include "camera/detection/gravity_filter.h"

namespace kova::camera {

/// Obstacles over time: a stixel is confirmed when it was seen in 2 of the last 3 frames, compared
/// by column and inverse distance. Between frames the camera has driven and turned, and what was
/// seen moves with the ground: of a grid of distances and turns that one counts which brings most
/// of what was seen to what is seen, the turn from the gyroscope where there is one. Neighbouring
/// confirmed stixels become obstacles, which are followed by nearest neighbours.
class ObstacleTracker {
public:
    void reset();

    /// Confirms stixels, fills columns' nearest, obstacles and the nearest in the corridor.
    /// @param rotation  of the camera since the frame before; null: not known
    /// @param temporal  false, or the first frame after a reset: everything counts at once
    void update(const RectifiedGeometry& geometry, const Rotation* rotation, bool temporal,
                DetectionFrame& frame);

private:
    struct Seen {
        float u;          ///< centre [px]
        float disparity;  ///< [px]
    };
    struct Look {
        std::vector<Seen> seen;  ///< from left to right
        std::int64_t t_ns = 0;
    };
    struct Track {
        Obstacle obstacle;
        float disparity = 0;
        int missed = 0;
        bool taken = false;
    };
    void confirm(const RectifiedGeometry& geometry, const Rotation* rotation,
                 DetectionFrame& frame);
    /// What the camera did since a look.
    struct Motion {
        float advance_mm = 0;
        float shift_px = 0;
    };
    static bool wasSeen(const Look& look, const RectifiedGeometry& geometry, const Motion& motion,
                        const Stixel& stixel, float reach, float apart);
    static Motion motionSince(const Look& look, const RectifiedGeometry& geometry,
                              const Rotation* rotation, float pause, const DetectionFrame& frame);
    void cluster(const RectifiedGeometry& geometry, DetectionFrame& frame);
    void follow(DetectionFrame& frame);

    std::array<Look, 2> history_;  ///< of the last frame and the one before
    int frames_ = 0;
    std::vector<Track> tracks_;
    std::vector<int> parent_;  ///< of the stixels' groups
    std::vector<float> group_disparity_;
    std::vector<int> ids_;  ///< of the frame's obstacles
    int next_id_ = 1;
};

}  // namespace kova::camera
