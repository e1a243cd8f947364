#pragma once

#include <memory>
#include <string>
#include <vector>

#include "camera/base/status.h"
#include "camera/simulation/simulated_source.h"
#include "sdk/modes.h"

namespace kova::camera {

/// Reads a list of simulated cameras: `P1` or `P1:scene=street:seed=7:unplug_s=10,R0`. A model
/// (R0, R1, P0, P1), then options:
///
/// | option | meaning |
/// |---|---|
/// | `scene=NAME` | one of sceneList(), else "demo" |
/// | `seed=N` | of scene, noise and residual error, else 1 |
/// | `unplug_s=T` | the camera is gone T seconds after it was opened |
/// | `stall_s=T` | it delivers no frame any more after T seconds, but stays |
/// | `corrupt_every=N` | every N-th frame is cut |
/// | `drop_every=N` | every N-th frame is lost in the camera |
/// | `noise=X` | factor on the noise |
/// | `imu=dead` | the inertial unit delivers nothing |
/// | `lenses=distorted` | pictures with lens distortion, not rectified |
///
/// @return kInvalidArgument with what is wrong and what is possible
Result<std::vector<SimulatedCameraOptions>> parseSimulatedCameras(const std::string& text);

/// Cameras that the environment variable KOVA_SIMULATED_CAMERAS asks for; none when it is unset.
/// Text that cannot be read is one warning in the log and no camera.
std::vector<CameraInfo> listSimulatedCameras();

/// Opens one of them.
/// @return kInvalidCamera (no such camera), kInvalidMode (the model lacks the mode)
Result<std::unique_ptr<Source>> openSimulatedCamera(int index, bino::RESOLUTION_FPS_MODE mode);

}  // namespace kova::camera
