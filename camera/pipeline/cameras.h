#pragma once

#include <memory>
#include <vector>

#include "camera/base/status.h"
#include "camera/sources/source.h"
#include "sdk/modes.h"

namespace kova::camera {

/// The attached cameras: real ones first, then the simulated ones that the environment asks for.
/// The index into this list is the camera index everywhere.
std::vector<CameraInfo> listCameras();

/// Opens an attached camera.
/// @return kInvalidCamera (no such camera, busy, no permission), kInvalidMode (it lacks the mode),
///         kNotCalibrated
Result<std::unique_ptr<Source>> openCamera(int index, bino::RESOLUTION_FPS_MODE mode);

}  // namespace kova::camera
