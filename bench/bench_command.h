#pragma once

#include <memory>

#include "tools/command.h"

namespace kova::bench {

/// `kova bench`: measures depth, speed and detection beside what OpenCV offers.
std::unique_ptr<tools::Command> makeBenchCommand();

}  // namespace kova::bench
