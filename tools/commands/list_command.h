#pragma once

#include "tools/command.h"

namespace kova::tools {

/// `kova list`: the cameras that can be opened, in the order of their index.
std::unique_ptr<Command> makeListCommand();

}  // namespace kova::tools
