#pragma once

#include <string>

#include "camera/base/status.h"
#include "camera/sources/frame.h"
#include "sdk/modes.h"

namespace kova::tools {

/// An attached camera and how it is to be opened.
struct CameraChoice {
    int index = 0;  ///< as 'kova list' counts
    camera::CameraInfo info;
    const bino::ResolutionFpsMode* mode = nullptr;  ///< never null
};

/// @param mode  name of a mode; empty: the one in which the camera's model starts, else the first
///              that the camera has
/// @return kInvalidCamera, kInvalidMode, with what to do
camera::Result<CameraChoice> chooseCamera(int index, const std::string& mode);

}  // namespace kova::tools
