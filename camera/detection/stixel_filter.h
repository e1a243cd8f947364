#pragma once

#include <array>
#include <vector>

#include "camera/detection/cell_grid.h"
#include "camera/detection/compared_pictures.h"
#include "camera/detection/detection_frame.h"
#include "camera/detection/stixel_search.h"
#include "camera/detection/stixel_support.h"
#include "sdk/records.h"

namespace kova::camera {

/// Axes of the ground's frame, in the camera's.
struct GroundAxes {
    std::array<double, 3> ahead = {0, 0, 1};
    std::array<double, 3> right = {1, 0, 0};
};
GroundAxes groundAxes(const GroundEstimate& ground);

/// What the filters need to know about a frame.
struct StixelContext {
    const CellGrid* grid = nullptr;
    const ComparedPictures* pictures = nullptr;  ///< rectified; the right one may be empty
    const DisparityMap* map = nullptr;
    bool half_size = false;  ///< the map was matched at half the size
    RectifiedGeometry geometry;
    const GroundEstimate* ground = nullptr;
    float min_disparity = 0;    ///< farther stixels are left out, as depth disparity [px]
    float max_disparity = 128;  ///< end of the search, as depth disparity [px]
    bino::ObstacleDetectionParameters obstacles;
    bino::ObstacleDetectionStixelsParameters stixels;
};

/// Turns the segments of all columns into stixels and drops. Everything a user can set acts here,
/// after plane and segments are fixed: a stricter limit only ever removes.
///
/// Feet and tops are refined to the pixel: a foot to the row where the ground has the object's
/// disparity, a top to the row that parts the two surfaces best.
class StixelFilter {
public:
    void run(const StixelContext& context, const StixelSearch& search, DetectionFrame& frame);

    const std::vector<StixelCandidate>& candidates() const { return candidates_; }

private:
    /// What some neighbouring columns bring.
    struct Part {
        std::vector<StixelCandidate> candidates;
        std::vector<Drop> drops;
    };
    void collectColumn(const StixelContext& context, const std::vector<Segment>& segments,
                       int column, Part& part) const;
    bool makeStixel(const StixelContext& context, const Segment& segment, const Segment* below,
                    const Segment* above, int column, StixelCandidate& candidate) const;
    bool makeEdge(const StixelContext& context, const std::vector<Segment>& segments,
                  std::size_t index, int column, StixelCandidate& candidate) const;
    bool collectDrop(const StixelContext& context, const Segment& segment, const Segment* below,
                     int column, std::vector<Drop>& drops) const;
    void measureFeatures(const StixelContext& context);
    void dropLoneDrops(DetectionFrame& frame);
    void freeRange(const StixelContext& context, const std::vector<Segment>& segments, int column,
                   ColumnRange& range) const;

    GroundAxes axes_;
    StixelSupport support_;
    static constexpr int kParts = 8;
    std::array<Part, kParts> parts_;
    std::vector<StixelCandidate> candidates_;
    std::vector<Drop> drops_;
    std::vector<int> first_;  ///< index of a column's first candidate; one more than columns
};

}  // namespace kova::camera
