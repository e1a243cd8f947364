#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/command.h"

namespace {

constexpr int kDone = 0;
constexpr int kWrongUsage = 2;

/// Levenshtein distance of two words.
std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Recordings, calibration and detection of stereo cameras", "kova");
    app.set_version_flag("--version", std::string("kova " KOVA_VERSION));
    app.require_subcommand(1);

    const auto commands = kova::tools::makeCommands();
    std::vector<CLI::App*> verbs;
    for (const auto& command : commands) {
        CLI::App* verb = app.add_subcommand(command->name(), command->description());
        command->declare(*verb);
        verbs.push_back(verb);
    }

    // The parser would only say that a verb is missing.
    const bool known = argc > 1 && std::any_of(commands.begin(), commands.end(),
                                               [&](const auto& c) { return c->name() == argv[1]; });
    if (argc > 1 && argv[1][0] != '-' && !known) {
        const auto nearest =
            std::min_element(commands.begin(), commands.end(), [&](const auto& a, const auto& b) {
                return editDistance(a->name(), argv[1]) < editDistance(b->name(), argv[1]);
            });
        std::fprintf(stderr, "kova: unknown verb '%s'", argv[1]);
        if (nearest != commands.end())
            std::fprintf(stderr, "; did you mean '%s'?", (*nearest)->name().c_str());
        std::fprintf(stderr, " See 'kova --help'.\n");
        return kWrongUsage;
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kDone : kWrongUsage;
    }
    for (std::size_t i = 0; i < commands.size(); ++i)
        if (verbs[i]->parsed())
            return commands[i]->run();
    return kWrongUsage;
}
