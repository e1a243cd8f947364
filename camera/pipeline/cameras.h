#pragma once

#include <memory>
#include <vector>

#include "camera/base/status.h"
#include "camera/sources/source.h"
#include "camera/sources/v4l2_system.h"
#include "sdk/modes.h"

namespace kova::camera {

/// The attached cameras: real ones first, then the simulated ones that the environment asks for.
/// The index into this list is the camera index everywhere.
/// A camera that the user may not open is not in it; a log line says so.
/// @param system  where the real ones are looked for
std::vector<CameraInfo> listCameras(V4l2System& system = realV4l2System());

/// The modes in which an attached camera delivers, in the order of its model's; none for an index
/// out of range.
std::vector<bino::RESOLUTION_FPS_MODE> cameraModes(int index,
                                                   V4l2System& system = realV4l2System());

/// Opens an attached camera.
/// @return kInvalidCamera (no such camera, busy, no permission), kInvalidMode (it lacks the mode),
///         kNotCalibrated, kCalibrationMisfit
Result<std::unique_ptr<Source>> openCamera(int index, bino::RESOLUTION_FPS_MODE mode,
                                           V4l2System& system = realV4l2System());

/// The same without a calibration, for making one; the source's calibration is empty then, or a
/// simulated camera's own.
/// @return kInvalidCamera, kInvalidMode
Result<std::unique_ptr<Source>> openUncalibrated(int index, bino::RESOLUTION_FPS_MODE mode,
                                                 V4l2System& system = realV4l2System());

}  // namespace kova::camera
