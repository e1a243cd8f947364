#pragma once

#include "camera/base/disparity.h"
#include "camera/base/image.h"

namespace kova::camera {

/// Where a search of the full size failed, one of half the size may have found the surface: its
/// costs are taken over four times the area. What it found is taken over if it is sure enough and
/// if the full size has no other surface beside it, since the borders of things are blurred there.
///
/// Both steps work on rows [begin, end) and may run on several threads; all rows of the first come
/// before the second.

/// Confidence from which on half the size is asked.
constexpr int kLeastBorrowed = kConfidenceScale / 2;
/// What differs by more from it is another surface [1/16 px of the full size].
constexpr int kOtherSurface = 3 * kDisparityScale;
/// Share of its confidence that is taken over, in 1/64: found where the full size failed, a
/// disparity is right less often than elsewhere.
constexpr int kBorrowedTrust = 48;

/// Rows of half the size: sets the confidence to 0 where nothing may be taken over.
/// @param full  disparities, with holes
void chooseBorrowed(const ImageView<const std::uint16_t>& full, DisparityMap& half, int begin,
                    int end);

/// Rows of the full size: completes the holes of `full`.
/// @param half      after chooseBorrowed()
/// @param upscaled  working memory, 2 * half width
void borrowRows(const DisparityMap& half, DisparityMap& full, std::uint16_t* upscaled, int begin,
                int end);

}  // namespace kova::camera
