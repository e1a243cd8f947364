#pragma once

#include "camera/matching/sgm_definition.h"

namespace kova::camera::sgm {

/// The definition in sgm_definition.h, computed the short way: a whole cost volume, one pixel and
/// one level at a time. Tests compare the fast form with it byte by byte.
///
/// @param left, right  grey, same size, at least 1x1
/// @param columns_apart, rows_apart  see Denoising
void matchReference(const ImageView<const std::uint8_t>& left,
                    const ImageView<const std::uint8_t>& right, const Search& search,
                    int columns_apart, int rows_apart, Winners& winners);

}  // namespace kova::camera::sgm
