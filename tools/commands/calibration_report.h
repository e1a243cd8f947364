#pragma once

#include <nlohmann/json_fwd.hpp>

#include "camera/base/status.h"
#include "camera/calibration/calibrator.h"

namespace kova::tools {

/// Prints what a calibration found, its errors and the errors of distances to be expected.
void printCalibration(const camera::CalibrationReport& report);

/// The same for machines, with whether it was accepted.
nlohmann::json calibrationJson(const camera::CalibrationReport& report,
                               const camera::Status& status);

}  // namespace kova::tools
