#pragma once

#include "camera/matching/band_memory.h"
#include "camera/matching/planes.h"
#include "camera/matching/sgm_definition.h"

namespace kova::camera::sgm {

/// Finds the winners of one band: rows from stripBegin(band) to stripBegin(band + 1), see
/// sgm_definition.h. Different bands may be computed at the same time.
///
/// @param left, right  complete planes; the reach of `right` is at least
///                     search.min_disparity + search.levels + 1, that of `left` 1
/// @param memory       reserved for this search, used by no one else meanwhile
/// @param winners      of the size of the picture
void matchBand(const EyePlanes& left, const EyePlanes& right, const Search& search, int band,
               BandMemory& memory, Winners& winners);

}  // namespace kova::camera::sgm
