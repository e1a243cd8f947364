#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace kova::test {

/// A path below the folder of real data; empty when there is none on this machine.
inline std::filesystem::path realData(const std::string& relative) {
    const char* root = std::getenv("KOVA_TEST_DATA");
    if (!root || !*root)
        return {};
    const std::filesystem::path path = std::filesystem::path(root) / relative;
    return std::filesystem::exists(path) ? path : std::filesystem::path();
}

/// A folder of its own for a test, removed at the end.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "kova-test-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

}  // namespace kova::test

/// Skips a test that needs real data where there is none.
#define KOVA_NEED_REAL_DATA(path)                                                       \
    do {                                                                                \
        if ((path).empty())                                                             \
            GTEST_SKIP() << "needs real stereo data: set KOVA_TEST_DATA to its folder"; \
    } while (false)
