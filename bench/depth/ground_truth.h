#pragma once

#include <string>
#include <vector>

#include "camera/base/image.h"
#include "camera/base/status.h"

namespace kova::bench {

/// One line of a list of pairs.
struct PairEntry {
    std::string group;  ///< kitti, middv3, midd2006, eth3d
    std::string name;
    int levels = 0;  ///< disparities searched, from 0, a multiple of 16
};

/// A rectified pair with known disparity.
struct TruePair {
    PairEntry entry;
    camera::Image<std::uint8_t> left, right;  ///< grey
    /// True disparity of the left picture [px]; negative where it is unknown or where the right
    /// eye does not see the surface.
    camera::Image<float> truth;
};

/// Reads a list of pairs; text after '#' is ignored.
camera::Result<std::vector<PairEntry>> readPairList(const std::string& path);

/// Reads a pair below `folder`, laid out as the data sets come: KITTI 2015 (16-bit PNG), Middlebury
/// v3 (PFM with a mask) and 2001 to 2006 (scaled 8-bit pictures, hidden pixels found by comparing
/// the truth of both eyes), ETH3D (PFM).
camera::Status readTruePair(const std::string& folder, const PairEntry& entry, TruePair& pair);

}  // namespace kova::bench
