#pragma once

#include <string>

#include "camera/detection/detection_frame.h"

namespace kova::tools {

/// One frame's detection as one line of JSON without its line end, as docs/detection-json.md
/// describes. The same record gives the same bytes.
std::string detectionJson(int index, const camera::DetectionFrame& frame);

}  // namespace kova::tools
