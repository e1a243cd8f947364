#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "camera/base/disparity.h"
#include "camera/base/image.h"

namespace kova::camera {

/// Tells what is nearer than the full search can see, from a search of a small copy of the pictures
/// over a range several times as large.
///
///  - Where its best match lies beyond the full search's range, the pixel is kTooNearDisparity,
///    whatever the full search took for its match. Only areas count in which some small pixel has
///    four such neighbours, so that a single wrong match marks nothing.
///  - A pixel of the right picture that shows such an area shows nothing else: what the full search
///    matched with it is invalid. This is what lies hidden behind the area, and the part of it
///    whose place is outside of the right picture.
class TooNear {
public:
    /// @param small          disparities of the small pictures [1/16 px of theirs]
    /// @param factor         how much smaller they are
    /// @param max_disparity  of the full search [px]
    void find(const ImageView<const std::uint16_t>& small, int factor, int max_disparity);

    /// Whether a small pixel was found too near, and whether any pixel of a small row was.
    bool marked(int x, int y) const { return (flags_.at(x, y) & kMarked) != 0; }
    bool anyMarked(int y) const { return rows_[static_cast<std::size_t>(y)] != 0; }
    bool anyMarked() const { return std::find(rows_.begin(), rows_.end(), 1) != rows_.end(); }

    /// Applies what was found to the rows [begin, end) of a map of the full size.
    void mark(DisparityMap& map, int begin, int end) const;

private:
    enum : std::uint8_t { kMarked = 1, kShownRight = 2 };

    Image<std::uint8_t> flags_;       ///< of the small pixels; kShownRight of the right picture's
    std::vector<std::uint8_t> rows_;  ///< 1 where a row has any
    int factor_ = 1;
};

}  // namespace kova::camera
