#pragma once

#include "tools/command.h"

namespace kova::tools {

/// `kova info`: says what is in a recording.
std::unique_ptr<Command> makeInfoCommand();

}  // namespace kova::tools
