#pragma once

#include <functional>
#include <string>

namespace kova::camera {

enum class LogLevel { kDebug, kInfo, kWarning, kError };

/// Receives every line of the library's log: level, category (the layer's name), text without a
/// line end. Called from any thread, one line at a time.
using LogSink = std::function<void(LogLevel, const std::string& category, const std::string& text)>;

/// Replaces the sink; an empty one restores the default, which writes warnings and errors to
/// standard error as "kova: warning: TEXT".
void setLogSink(LogSink sink);

void logLine(LogLevel level, const std::string& category, const std::string& text);
inline void logInfo(const std::string& category, const std::string& text) {
    logLine(LogLevel::kInfo, category, text);
}
inline void logWarning(const std::string& category, const std::string& text) {
    logLine(LogLevel::kWarning, category, text);
}
inline void logError(const std::string& category, const std::string& text) {
    logLine(LogLevel::kError, category, text);
}

}  // namespace kova::camera
