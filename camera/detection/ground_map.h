#pragma once

#include <cstdint>
#include <vector>

#include "camera/base/scratch_pool.h"
#include "camera/detection/stixel_filter.h"

namespace kova::camera {

/// Labels every pixel: 0 obstacle, 127 not sure, 255 ground. A pixel counts only with measured
/// depth of its own that fits its column's explanation; saturated ones, filled depth, drops, an
/// obstacle where the picture shows noise alone and what was not confirmed stay unsure, and so does
/// ground whose connected area is too small.
class GroundMapper {
public:
    GroundMapper();
    ~GroundMapper();
    GroundMapper(const GroundMapper&) = delete;
    GroundMapper& operator=(const GroundMapper&) = delete;

    /// @param left  rectified, grey
    void run(const StixelContext& context, const StixelSearch& search,
             const ImageView<const std::uint8_t>& left, DetectionFrame& frame);

private:
    struct Expected;
    void labelRows(const StixelContext& context, const StixelSearch& search,
                   const DetectionFrame& frame);
    void dropSmallRegions(const StixelContext& context);
    void paintRow(const StixelContext& context, const ImageView<const std::uint8_t>& left, int y,
                  Expected& expected, DetectionFrame& frame) const;

    /// Per column and row, at column * height + y: kUnsure, kGround or the index of a stixel.
    std::vector<std::int32_t> labels_;
    std::vector<std::int32_t> region_;
    std::vector<std::int32_t> stack_;
    std::vector<GroundModel> in_column_;  ///< the ground in each column
    std::vector<std::uint8_t> surface_;   ///< per cell: the picture shows more than noise
    ScratchPool<Expected> scratch_;
    int height_ = 0;
};

}  // namespace kova::camera
