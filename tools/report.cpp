#include "tools/report.h"

#include <charconv>
#include <cstdio>
#include <limits>
#include <mutex>

#include "camera/base/log.h"

namespace kova::tools {

namespace {
std::mutex g_mutex;
std::string g_last_error;
}  // namespace

void installLog() {
    camera::setLogSink(
        [](camera::LogLevel level, const std::string& /*category*/, const std::string& text) {
            if (level < camera::LogLevel::kWarning)
                return;
            const bool error = level == camera::LogLevel::kError;
            std::fprintf(stderr, "kova: %s: %s\n", error ? "error" : "warning", text.c_str());
            if (error) {
                const std::lock_guard<std::mutex> lock(g_mutex);
                g_last_error = text;
            }
        });
}

int fail(const camera::Status& status) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (g_last_error != status.message())
        std::fprintf(stderr, "kova: error: %s\n", status.message().c_str());
    return status.code() == camera::ErrorCode::kInvalidArgument ? kWrongUsage : kFailed;
}

std::string sizeText(std::int64_t bytes) {
    static constexpr const char* kUnits[] = {"B", "kB", "MB", "GB", "TB"};
    double value = static_cast<double>(bytes);
    int unit = 0;
    for (; value >= 1000 && unit < 4; ++unit) value /= 1000;
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]);
    return text;
}

std::optional<std::pair<std::int64_t, std::int64_t>> parseFrameRange(const std::string& text) {
    std::pair<std::int64_t, std::int64_t> range{0, std::numeric_limits<std::int64_t>::max()};
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos || text.size() == 1)
        return std::nullopt;
    const auto read = [&](std::size_t from, std::size_t to, std::int64_t& value) {
        if (from == to)
            return true;
        const auto [end, error] = std::from_chars(text.data() + from, text.data() + to, value);
        return error == std::errc() && end == text.data() + to && value >= 0;
    };
    if (!read(0, colon, range.first) || !read(colon + 1, text.size(), range.second) ||
        range.first > range.second)
        return std::nullopt;
    return range;
}

}  // namespace kova::tools
