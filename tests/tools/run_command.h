#pragma once

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/command.h"

namespace kova::tools {

/// What a command answered and printed.
struct Ran {
    int code = 0;
    std::string out, err;
};

/// Runs a command in this process, as the command line would.
inline Ran run(std::unique_ptr<Command> command, std::vector<std::string> arguments) {
    CLI::App app;
    command->declare(app);
    std::reverse(arguments.begin(), arguments.end());
    app.parse(arguments);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Ran ran;
    ran.code = command->run();
    ran.out = testing::internal::GetCapturedStdout();
    ran.err = testing::internal::GetCapturedStderr();
    return ran;
}

}  // namespace kova::tools
