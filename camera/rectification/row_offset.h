#pragma once

#include <array>

#include "camera/calibration/stereo_calibration.h"

namespace kova::camera {

/// How far the rows of the right rectified picture lie below those of the left one, over the
/// picture: what small errors of the calibration leave. What the left picture shows in row y the
/// right one shows, at x, in row y + at(x, y).
struct RowOffset {
    /// A constant, then what grows with x (a turn of the eye about its axis), y (a difference of
    /// focal lengths), x y and y^2 (turns to the side and up, decentred lenses).
    static constexpr int kTerms = 5;
    using Terms = std::array<double, kTerms>;

    Terms terms{};           ///< [px], at the edges and corners of the picture
    double cx = 0, cy = 0;   ///< principal point of the right picture [px]
    double half_width = 1;   ///< [px]
    double half_height = 1;  ///< [px]

    RowOffset() = default;
    explicit RowOffset(const RectifiedGeometry& geometry)
        : cx(geometry.cx_right),
          cy(geometry.cy),
          half_width(0.5 * geometry.width),
          half_height(0.5 * geometry.height) {}

    /// What each term counts at a pixel of the right picture.
    Terms weightsAt(double x, double y) const {
        const double across = (x - cx) / half_width, down = (y - cy) / half_height;
        return {1, across, down, across * down, down * down};
    }
    /// [px], positive down
    double at(double x, double y) const {
        const Terms w = weightsAt(x, y);
        double sum = 0;
        for (int i = 0; i < kTerms; ++i) sum += w[i] * terms[i];
        return sum;
    }
    /// How far the turn takes a row to the right [px].
    double sideways(double y) const { return -terms[1] / half_width * (y - cy); }

    /// The largest difference from another offset of the same picture, sign dropped [px], of a
    /// few points that the smooth function cannot get around.
    double largestDifference(const RowOffset& other) const;
    double largest() const;
};

}  // namespace kova::camera
