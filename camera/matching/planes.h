#pragma once

#include <array>

#include "camera/base/image.h"

namespace kova::camera::sgm {

/// How pictures are read in noise.
struct Denoising {
    /// By so many grey levels at most a pixel is moved towards the mean of the pixels around it,
    /// which takes noise away and leaves edges.
    int limit = 0;
    /// The mean is of 5x5 pixels with the weights 1 4 6 4 1 instead of 3x3 with 1 2 1.
    bool wide = false;
    /// Distance of the columns and rows that the census compares, 1 to kMostApart: where noise
    /// drowns what neighbours differ by, those farther apart differ by more.
    int columns_apart = 1, rows_apart = 1;
};
constexpr int kMostApart = 4;

/// Rows [begin, end) of a softened picture; those that are only read lie around them.
void softenRows(const ImageView<const std::uint8_t>& picture, const Denoising& denoising,
                const ImageView<std::uint8_t>& out, int begin, int end);

/// What the costs are made from, for one eye: its grey picture and the census of 5x5 pixels as
/// three byte planes (bit n of plane n / 8 tells whether the n-th neighbour is darker). Rows
/// continue beyond both sides with the value at the border, so that vectors may be read there.
class EyePlanes {
public:
    static constexpr int kCensusPlanes = 3;

    /// @param reach  pixels that must be readable left of the picture; right of it there are
    ///               kRightReach beyond the next multiple of 64
    void resize(int width, int height, int reach);
    static constexpr int kRightReach = 128;

    int width() const { return width_; }
    int height() const { return height_; }

    /// Makes the planes of a strip of rows (strips.h); different ones may be made at the same time.
    void compute(const ImageView<const std::uint8_t>& picture, const Denoising& denoising,
                 int strip);

    /// Pixel 0 of a row; rows outside of the picture are the nearest one inside.
    const std::uint8_t* grey(int y) const { return pixel(grey_, y); }
    const std::uint8_t* census(int plane, int y) const { return pixel(census_[plane], y); }

private:
    static constexpr int kReachRows = 2 * kMostApart;

    void copyGrey(const ImageView<const std::uint8_t>& picture, const Denoising& denoising, int y,
                  std::uint8_t* row) const;
    const std::uint8_t* pixel(const Image<std::uint8_t>& plane, int y) const {
        return plane.row(y < 0 ? 0 : y < height_ ? y : height_ - 1) + left_;
    }

    int width_ = 0, height_ = 0, left_ = 0;
    Image<std::uint8_t> grey_;
    Image<std::uint8_t> around_;  ///< grey rows above and below each strip, its own copies
    std::array<Image<std::uint8_t>, kCensusPlanes> census_;
};

}  // namespace kova::camera::sgm
