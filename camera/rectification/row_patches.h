#pragma once

#include <cstdint>
#include <vector>

#include "camera/base/disparity.h"
#include "camera/base/image.h"

namespace kova::camera {

/// What one small patch says about the rows.
struct RowSample {
    float left_x = 0;        ///< [px], in the left picture
    float x = 0;             ///< [px], in the right picture
    float y = 0;             ///< row in the left picture [px]
    float offset_px = 0;     ///< row in the right picture minus row in the left one
    float variance_px2 = 0;  ///< of the offset
};

/// Measures vertical offsets between the eyes of a rectified pair at patches of 16 x 12 px spread
/// over the picture, where the disparity is sure: Gauss-Newton steps (Lucas and Kanade, IJCAI 1981;
/// Baker and Matthews, IJCV 2004) with both components free, gain and offset of the eyes taken
/// off. The horizontal component has to be free although the disparity is known: at a slanted
/// surface the matcher makes up for a vertical offset by a wrong disparity, and a patch that has
/// texture in one direction only would call the rest of that a vertical offset. Gradients of the
/// two pictures are multiplied with each other, not with themselves, since the square of the noise
/// would make every step too short.
class RowPatches {
public:
    /// Rows that lie farther apart than this are not found [px].
    static constexpr float kReachPx = 3;
    /// Patches lie in a grid of at most so many columns and rows, each anywhere in its cell.
    static constexpr int kMostColumns = 24, kMostRows = 15;
    static constexpr int kMostSamples = kMostColumns * kMostRows;

    /// @param left, right  of one size; any stride
    /// @param map          of the same size; filled disparities do not count
    /// @param round        a number that moves the patches
    /// @return the samples, in a fixed order whatever the number of threads; valid until the next
    ///         call
    const std::vector<RowSample>& measure(const ImageView<const std::uint8_t>& left,
                                          const ImageView<const std::uint8_t>& right,
                                          const DisparityMap& map, std::uint32_t round);

private:
    std::vector<RowSample> cells_;  // variance 0: nothing there
    std::vector<RowSample> samples_;
};

}  // namespace kova::camera
