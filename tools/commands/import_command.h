#pragma once

#include "tools/command.h"

namespace kova::tools {

/// `kova import`: writes a set of stereo pictures as a recording.
std::unique_ptr<Command> makeImportCommand();

}  // namespace kova::tools
