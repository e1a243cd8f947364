#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

namespace kova::tools {

/// A verb of the `kova` command. Results go to standard output, everything else to standard error.
class Command {
public:
    virtual ~Command() = default;
    virtual std::string name() const = 0;
    /// One line for `kova --help`.
    virtual std::string description() const = 0;
    /// Declares arguments and options.
    virtual void declare(CLI::App& app) = 0;
    /// @return 0 done, 1 failed (after a line on standard error that says why)
    virtual int run() = 0;
};

/// All verbs, in the order in which the help lists them.
std::vector<std::unique_ptr<Command>> makeCommands();

}  // namespace kova::tools
