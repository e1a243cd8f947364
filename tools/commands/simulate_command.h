#pragma once

#include "tools/command.h"

namespace kova::tools {

/// `kova simulate`: renders a drive through a scene into a recording, with its truth on request.
std::unique_ptr<Command> makeSimulateCommand();

}  // namespace kova::tools
