#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "camera/base/status.h"

namespace kova::tools {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

/// Sends the library's warnings and errors to standard error. Called once, at the start.
void installLog();

/// Says on standard error why a verb failed, unless the library's log just did.
/// @return the exit code: kWrongUsage for kInvalidArgument, else kFailed
int fail(const camera::Status& status);

/// "28.1 MB", "512 B".
std::string sizeText(std::int64_t bytes);

/// "FIRST:LAST", both counted in and either left out: ":9", "10:", "5:5". None for anything else.
std::optional<std::pair<std::int64_t, std::int64_t>> parseFrameRange(const std::string& text);

}  // namespace kova::tools
