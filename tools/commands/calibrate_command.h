#pragma once

#include "tools/command.h"

namespace kova::tools {

/// `kova calibrate`: calibrates a stereo camera from pictures of a board, or judges a calibration
/// on any pictures.
std::unique_ptr<Command> makeCalibrateCommand();

}  // namespace kova::tools
