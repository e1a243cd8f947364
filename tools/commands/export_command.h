#pragma once

#include "tools/command.h"

namespace kova::tools {

/// `kova export`: writes a recording as pictures, tables and a calibration.
std::unique_ptr<Command> makeExportCommand();

}  // namespace kova::tools
