#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace kova::tools {

/// A bar on standard error for work that takes long, where that is a terminal; nothing elsewhere.
class Progress {
public:
    explicit Progress(std::string label);
    ~Progress() { finish(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Shows `done` of `all`; draws at most ten times a second.
    void update(std::int64_t done, std::int64_t all);
    /// Removes the bar.
    void finish();

    /// The line without its control characters: "label [#####     ]  50 %".
    static std::string line(const std::string& label, std::int64_t done, std::int64_t all);

private:
    std::string label_;
    bool on_terminal_ = false;
    bool shown_ = false;
    std::chrono::steady_clock::time_point last_;
};

}  // namespace kova::tools
