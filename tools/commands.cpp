#include "tools/command.h"
#include "tools/commands/calibrate_command.h"
#include "tools/commands/check_command.h"
#include "tools/commands/detect_command.h"
#include "tools/commands/export_command.h"
#include "tools/commands/import_command.h"
#include "tools/commands/info_command.h"
#include "tools/commands/list_command.h"
#include "tools/commands/record_command.h"
#include "tools/commands/simulate_command.h"
#include "tools/commands/trim_command.h"
#include "tools/report.h"

#if defined(KOVA_BENCH_ENABLED)
#include "bench/bench_command.h"
#endif

namespace kova::tools {

std::vector<std::unique_ptr<Command>> makeCommands() {
    installLog();
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(makeListCommand());
    commands.push_back(makeSimulateCommand());
    commands.push_back(makeImportCommand());
    commands.push_back(makeRecordCommand());
    commands.push_back(makeInfoCommand());
    commands.push_back(makeCheckCommand());
    commands.push_back(makeDetectCommand());
    commands.push_back(makeTrimCommand());
    commands.push_back(makeExportCommand());
#if defined(KOVA_BENCH_ENABLED)
    commands.push_back(bench::makeBenchCommand());
#endif
    commands.push_back(makeCalibrateCommand());
    return commands;
}

}  // namespace kova::tools
