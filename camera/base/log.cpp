#include "camera/base/log.h"

#include <cstdio>
#include <mutex>
#include <utility>

namespace kova::camera {

namespace {

struct Log {
    std::mutex mutex;
    LogSink sink;
};

Log& theLog() {
    static Log log;
    return log;
}

void writeToStandardError(LogLevel level, const std::string& text) {
    if (level < LogLevel::kWarning)
        return;
    std::fprintf(stderr, "kova: %s: %s\n", level == LogLevel::kWarning ? "warning" : "error",
                 text.c_str());
}

}  // namespace

void setLogSink(LogSink sink) {
    Log& log = theLog();
    const std::lock_guard<std::mutex> lock(log.mutex);
    log.sink = std::move(sink);
}

void logLine(LogLevel level, const std::string& category, const std::string& text) {
    Log& log = theLog();
    const std::lock_guard<std::mutex> lock(log.mutex);
    if (log.sink)
        log.sink(level, category, text);
    else
        writeToStandardError(level, text);
}

}  // namespace kova::camera
