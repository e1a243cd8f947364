#pragma once

#include "camera/calibration/view_collector.h"
#include "camera/sources/source.h"

namespace kova::tools {

/// Offers what a live camera sees to a collector until it has enough, `seconds` of camera time are
/// over (0: never) or Ctrl-C. Says on standard error which views are taken and what is missing;
/// with `status_line`, also why the present view is not taken.
///
/// @return why the camera ended, where it did
camera::Status collectLive(camera::Source& source, camera::ViewCollector& collector, double seconds,
                           bool status_line);

}  // namespace kova::tools
