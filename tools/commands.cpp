#include "tools/command.h"

namespace kova::tools {

std::vector<std::unique_ptr<Command>> makeCommands() {
    std::vector<std::unique_ptr<Command>> commands;
    return commands;
}

}  // namespace kova::tools
