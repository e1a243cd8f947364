#pragma once

#include <string>
#include <vector>

#include "camera/base/image.h"
#include "camera/base/status.h"

namespace kova::camera {

enum class EpipolarVerdict {
    kFits,        ///< the rows are aligned
    kFitsPoorly,  ///< usable, but calibrating again would pay
    kMisfit,      ///< the rows are not aligned
    kSwapped,     ///< most features lie farther right in the right picture
    kCannotTell,  ///< too few features that both pictures share
};

/// What matched features say about a rectified pair.
struct EpipolarReport {
    EpipolarVerdict verdict = EpipolarVerdict::kCannotTell;
    int matches = 0;              ///< features that agree with one epipolar geometry
    double median_dy_px = 0;      ///< row in the left minus row in the right picture
    double median_abs_dy_px = 0;  ///< its size
    double inlier_share = 0;      ///< matches within 1 row
    double behind_share = 0;      ///< matches with a disparity that is clearly negative
    std::string words;            ///< one sentence for people

    /// kCalibrationMisfit for a misfit and for swapped eyes, with the words; ok otherwise, in
    /// doubt too.
    Status status() const;
};

/// Checks on features whether the rows of rectified pairs are aligned: AKAZE (Alcantarilla et al.,
/// BMVC 2013) with a ratio test and cross-check; of the matches, those count that agree with any
/// epipolar geometry at all (RANSAC on the fundamental matrix), so that a scene without texture or
/// with a repeating one gives doubt instead of a wrong verdict.
class EpipolarCheck {
public:
    /// @param disparity_offset  RectifiedGeometry::disparityOffset()
    explicit EpipolarCheck(double disparity_offset = 0) : offset_(disparity_offset) {}

    /// Adds a rectified pair; several pairs of one camera make the verdict surer. Takes up to some
    /// tenths of a second. Pictures of different sizes add nothing.
    void add(const ImageView<const std::uint8_t>& left, const ImageView<const std::uint8_t>& right);

    EpipolarReport report() const;

private:
    double offset_;
    std::vector<double> dy_px_;
    std::vector<double> disparity_px_;
};

/// Whether a calibration made for one picture size can be used at another, in words.
Status checkPictureSize(int calibrated_width, int calibrated_height, int width, int height);

}  // namespace kova::camera
