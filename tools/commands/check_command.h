#pragma once

#include "tools/command.h"

namespace kova::tools {

/// `kova check`: walks through a recording and reports what is wrong with it.
std::unique_ptr<Command> makeCheckCommand();

}  // namespace kova::tools
