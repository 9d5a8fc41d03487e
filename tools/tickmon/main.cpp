// zyn-tickmon: the tick timing monitor and field self-test.
#include <cstdio>
#include <string>
#include <vector>

#include "MonitorOptions.h"
#include "TickMonitor.h"

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const tickmon::ParseResult parsed = tickmon::parseOptions(arguments);
    switch (parsed.outcome) {
        case tickmon::ParseOutcome::Help:
            std::fputs(tickmon::usageText().c_str(), stdout);
            return tickmon::exit_status::kPassed;
        case tickmon::ParseOutcome::Error:
            std::fprintf(stderr, "zyn-tickmon: %s\n", parsed.error.c_str());
            return tickmon::exit_status::kUsage;
        case tickmon::ParseOutcome::Run:
            break;
    }
    return tickmon::runMonitor(parsed.options);
}
