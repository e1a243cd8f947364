#pragma once

#include "camera/detection/stixel_filter.h"
#include "camera/detection/stixel_judge.h"

namespace kova::camera {

/// What the judge looks at. The pictures themselves are compared for the candidate as it is and for
/// its pixels as ground; without a right picture, or without a ground, those are not known.
StixelFeatures featuresOf(const StixelContext& context, const StixelCandidate& candidate);

}  // namespace kova::camera
