#pragma once

#include <memory>

#include "tools/command.h"

namespace kova::bench {

/// `kova bench`: measures depth and speed beside OpenCV's matchers.
std::unique_ptr<tools::Command> makeBenchCommand();

}  // namespace kova::bench
