#pragma once

#include "camera/base/image.h"

namespace kova::camera {

/// What a surface hypothesis says about one row of a patch.
struct RowHypothesis {
    int y = 0;
    int d16 = 0;            ///< disparity of the left pixels of this row [1/16 px]
    bool compared = false;  ///< counts for the second of the two sums, see below
};

/// More rows say little more, as neighbouring ones are alike.
constexpr int kMostPatchRows = 24;

/// How well a patch of the left picture agrees with the right one where a hypothesis puts it.
struct PhotometricFit {
    float variance = 0;           ///< of the left patch [grey levels^2]
    float residual = 0;           ///< mean squared difference, means removed [grey levels^2]
    float correlation = 0;        ///< normalised cross-correlation, -1..1
    float compared_residual = 0;  ///< as `residual`, of the compared rows alone
    /// Least residual 1.5 to 8 px away, of at most 12 of the rows: one as small as `residual` means
    /// that the patch would fit there as well.
    float elsewhere_residual = 0;
    int pixels = 0;  ///< inside both pictures
    int compared_pixels = 0;
};

/// Compares the pixels of a patch themselves, without the neighbourhood that a dense matcher needs:
/// next to a border the matcher's support lies half on the other surface, the patch does not. The
/// test of one surface hypothesis against another follows Pinggera et al., "Lost and Found:
/// detecting small road hazards for self-driving vehicles" (IROS 2016).
///
/// The best of five shifts within 0.6 px counts, since neither disparities nor the ground are known
/// better than that. The right picture is interpolated linearly, to 1/16 px; all sums are integer.
/// @param rows       of the patch, kMostPatchRows at most
/// @param elsewhere  whether to look there too
/// @param fit        all zero when less than 8 pixels lie inside both pictures
void photometricFit(const ImageView<const std::uint8_t>& left,
                    const ImageView<const std::uint8_t>& right, int x_begin, int x_end,
                    const RowHypothesis* rows, int count, bool elsewhere, PhotometricFit& fit);

}  // namespace kova::camera
