#include "tools/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace kova::tools {

namespace {
constexpr int kBarWidth = 40;
constexpr std::chrono::milliseconds kBetweenDrawings{100};
}  // namespace

Progress::Progress(std::string label)
    : label_(std::move(label)), on_terminal_(::isatty(STDERR_FILENO) == 1) {}

std::string Progress::line(const std::string& label, std::int64_t done, std::int64_t all) {
    const double part =
        all > 0 ? std::clamp(static_cast<double>(done) / static_cast<double>(all), 0.0, 1.0) : 1.0;
    const int filled = static_cast<int>(part * kBarWidth);
    char percent[16];
    std::snprintf(percent, sizeof percent, "%3d %%", static_cast<int>(part * 100));
    return label + " [" + std::string(static_cast<std::size_t>(filled), '#') +
           std::string(static_cast<std::size_t>(kBarWidth - filled), ' ') + "] " + percent;
}

void Progress::update(std::int64_t done, std::int64_t all) {
    if (!on_terminal_)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (shown_ && done < all && now - last_ < kBetweenDrawings)
        return;
    last_ = now;
    shown_ = true;
    std::fprintf(stderr, "\r%s", line(label_, done, all).c_str());
    std::fflush(stderr);
}

void Progress::finish() {
    if (!shown_)
        return;
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    shown_ = false;
}

}  // namespace kova::tools
