#pragma once

#include "tools/command.h"

namespace kova::tools {

/// `kova trim`: copies a part of a recording, its pictures byte for byte.
std::unique_ptr<Command> makeTrimCommand();

}  // namespace kova::tools
