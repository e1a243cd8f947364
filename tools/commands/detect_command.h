#pragma once

#include "tools/command.h"

namespace kova::tools {

/// `kova detect`: runs the detection over a recording.
std::unique_ptr<Command> makeDetectCommand();

}  // namespace kova::tools
