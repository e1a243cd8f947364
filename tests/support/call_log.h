#pragma once

#include <gtest/gtest.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

namespace kova::test {

/// One call that a stand-in library recorded.
struct Call {
    std::string text;                 ///< as callText() writes it
    std::vector<unsigned char> data;  ///< what an upload pointed to
};

/// The shared record of the stand-ins (GL, CUDA, buffers), so that their order is seen too.
/// Thread-safe.
class CallLog {
public:
    static CallLog& instance();

    void add(std::string text, std::vector<unsigned char> data = {});
    /// Forgets everything.
    void clear();
    std::vector<Call> calls() const;
    std::vector<std::string> texts() const;
    /// texts(), then clear().
    std::vector<std::string> take();

private:
    mutable std::mutex mutex_;
    std::vector<Call> calls_;
};

inline std::string argumentText(std::nullptr_t) {
    return "null";
}

/// A number in its shortest exact form, so that different values have different texts; -0 is 0, GL
/// makes no difference.
template <typename T>
std::enable_if_t<std::is_floating_point_v<T>, std::string> argumentText(T value) {
    if (std::isnan(value))
        return "nan";
    if (value == 0)
        return "0";
    char buffer[64];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
    return std::string(buffer, end);
}

template <typename T>
std::enable_if_t<std::is_integral_v<T> || std::is_enum_v<T>, std::string> argumentText(T value) {
    return std::to_string(static_cast<long long>(value));
}

inline std::string argumentText(const char* text) {
    return text;
}

inline std::string argumentText(const void* address) {
    if (!address)
        return "null";
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "@%llx",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(address)));
    return buffer;
}

inline std::string argumentText(const std::vector<float>& values) {
    std::string text = "[";
    for (const float value : values) text += (text.size() > 1 ? " " : "") + argumentText(value);
    return text + "]";
}

/// "name(argument, argument, ...)". Numbers may be given as int, float or double, as long as they
/// are the same number: 0.1f is written 0.1, as is 0.1.
template <typename... Arguments>
std::string callText(const char* name, const Arguments&... arguments) {
    std::string text = std::string(name) + "(";
    bool first = true;
    ((text += (first ? "" : ", ") + argumentText(arguments), first = false), ...);
    return text + ")";
}

/// Compares two lists of calls; a failure shows where they part.
testing::AssertionResult sameCalls(const std::vector<std::string>& actual,
                                   const std::vector<std::string>& expected);

/// How many of the calls are to the function of this name.
int countCalls(const std::vector<std::string>& calls, const std::string& name);

}  // namespace kova::test
