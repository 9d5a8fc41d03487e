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
    zyn_cli::addValueOption(
        *app, "Options",
        {"-p,--priority", "P",
         "priority class of the tick thread, 0 is SCHED_RR 99 and 4 is SCHED_RR 79; default " +
             std::to_string(options.priority) +
             ". Without the right to real-time scheduling the thread keeps its normal policy with a minimal timer "
             "slack",
         "an integer from " + std::to_string(kHighestPriority) + " (highest) to " + std::to_string(kLowestPriority) +
             " (lowest)",
         [&options](const std::string& text) {
             return zyn_cli::storeInteger(text, options.priority, kHighestPriority, kLowestPriority);
         }});
    zyn_cli::addValueOption(
        *app, "Options",
        {"-n,--ticks", "N",
         "number of ticks to print; default " + std::to_string(options.ticks) + " (about one second)",
         "an integer from 1 to " + std::to_string(kMostTicks),
         [&options](const std::string& text) { return zyn_cli::storeInteger(text, options.ticks, 1U, kMostTicks); }});
    zyn_cli::addValueOption(
        *app, "Options",
        {"-t,--trace", "LEVEL",
         "trace level of the library (module ZYN.TS); default from KIV_TRACE, otherwise 3. Traces go to stderr",
         "an integer from 0 (silent) to " + std::to_string(kMostDetailedTrace) + " (every tick)",
         [&options](const std::string& text) {
             return zyn_cli::storeInteger(text, options.traceLevel, 0U, kMostDetailedTrace);
         }});
    return app;
}
