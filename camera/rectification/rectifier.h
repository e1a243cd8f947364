#pragma once

#include <memory>

#include "camera/base/image.h"
#include "camera/base/status.h"
#include "camera/calibration/stereo_calibration.h"
#include "camera/rectification/row_offset.h"

namespace kova::camera {

/// Turns the pictures of a calibrated pair into a rectified one: a precomputed fixed-point look-up,
/// bilinear. Pictures that are rectified already are only cropped to a width that is a multiple
/// of 4, at the right edge.
class Rectifier {
public:
    ~Rectifier();
    Rectifier(const Rectifier&) = delete;
    Rectifier& operator=(const Rectifier&) = delete;

    /// @return null and kInvalidArgument / kInvalidFile in `status` when the calibration is
    ///         impossible
    static std::unique_ptr<Rectifier> make(const StereoCalibration& calibration, Status& status);

    const RectifiedGeometry& geometry() const;

    /// Rotation that takes vectors of the original left camera's frame to the rectified one, rows.
    const std::array<double, 9>& rectifiedFromLeft() const;

    /// From now on the right eye's pictures are made with their rows moved up by the offset, so
    /// that they lie where the left eye's do; pictures that come rectified are resampled for that.
    /// An offset of nothing takes that back. Some milliseconds, and memory for one more table at
    /// the first call.
    void alignRows(const RowOffset& offset);

    /// @param left, right          of the calibration's size
    /// @param left_out, right_out  resized to the geometry's size; bit-identical on every CPU
    void rectify(const ImageView<const std::uint8_t>& left,
                 const ImageView<const std::uint8_t>& right, Image<std::uint8_t>& left_out,
                 Image<std::uint8_t>& right_out) const;

    /// The left or the right picture in colour.
    void rectifyLeftColour(const ImageView<const Rgba>& left, Image<Rgba>& out) const;
    void rectifyRightColour(const ImageView<const Rgba>& right, Image<Rgba>& out) const;

private:
    Rectifier();
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kova::camera
