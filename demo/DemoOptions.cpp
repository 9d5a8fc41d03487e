#include "DemoOptions.h"

#include <string>

#include "CommandLine.h"

namespace {
constexpr int32_t kHighestPriority = 0;
constexpr int32_t kLowestPriority = 4;
constexpr uint32_t kMostTicks = 1000000;
constexpr uint32_t kMostDetailedTrace = 7;
}  // namespace

std::unique_ptr<CLI::App> demoCommandLine(DemoOptions& options) {
    std::unique_ptr<CLI::App> app = zyn_cli::makeApp(
        "zyn-tickdemo",
        "Starts a 6 ms tick oscillator on the reference host platform and prints each tick's monotonic timestamp "
        "and its distance from the previous tick, then a summary.");
    const std::string group = "Options";
    zyn_cli::addIntegerOption(*app, group, "-p,--priority", "P",
                              "priority class of the tick thread, 0 is SCHED_RR 99 and 4 is SCHED_RR 79; default " +
                                  std::to_string(options.priority) +
                                  ". Without the right to real-time scheduling the thread keeps its normal policy",
                              zyn_cli::IntegerRange<int32_t>{kHighestPriority, kLowestPriority, "highest", "lowest"},
                              options.priority);
    zyn_cli::addIntegerOption(
        *app, group, "-n,--ticks", "N",
        "number of ticks to print; default " + std::to_string(options.ticks) + " (about one second)",
        zyn_cli::IntegerRange<uint32_t>{1, kMostTicks}, options.ticks);
    zyn_cli::addIntegerOption(
        *app, group, "-t,--trace", "LEVEL",
        "trace level of the library (module ZYN.TS); default from KIV_TRACE, otherwise 3. Traces go to stderr",
        zyn_cli::IntegerRange<uint32_t>{0, kMostDetailedTrace, "silent", "every tick"}, options.traceLevel);
    return app;
}
