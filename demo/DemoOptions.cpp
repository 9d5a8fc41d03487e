#include "DemoOptions.h"

#include <cerrno>
#include <cstdlib>

namespace {

bool parseInteger(const char* text, long minimum, long maximum, long& value) {
    if (text == nullptr || *text == '\0') {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    const long parsed = std::strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || parsed < minimum || parsed > maximum) {
        return false;
    }
    value = parsed;
    return true;
}

}  // namespace

bool parseDemoOptions(int argc, char** argv, DemoOptions& options, std::string& error) {
    for (int index = 1; index < argc; ++index) {
        const std::string option = argv[index];
        if (option == "-h" || option == "--help") {
            options.help = true;
            continue;
        }
        const char* value = index + 1 < argc ? argv[index + 1] : nullptr;
        long parsed = 0;
        if (option == "-p" || option == "--priority") {
            if (!parseInteger(value, 0, 4, parsed)) {
                error = "--priority takes 0 (highest) to 4 (lowest)";
                return false;
            }
            options.priority = static_cast<int32_t>(parsed);
        } else if (option == "-n" || option == "--ticks") {
            if (!parseInteger(value, 1, 1000000, parsed)) {
                error = "--ticks takes 1 to 1000000";
                return false;
            }
            options.ticks = static_cast<uint32_t>(parsed);
        } else if (option == "-t" || option == "--trace") {
            if (!parseInteger(value, 0, 7, parsed)) {
                error = "--trace takes a level from 0 (silent) to 7 (every tick)";
                return false;
            }
            options.traceLevel = static_cast<int32_t>(parsed);
        } else {
            error = "unknown option " + option;
            return false;
        }
        ++index;
    }
    return true;
}

std::string demoUsage(const char* program) {
    return std::string("Usage: ") + program +
           " [--priority P] [--ticks N] [--trace LEVEL]\n"
           "Starts a 6 ms tick oscillator on the reference host platform and prints each tick's\n"
           "monotonic timestamp and its distance from the previous tick, then a summary.\n"
           "  -p, --priority P   priority class of the tick thread, 0 (SCHED_RR 99) to 4 (SCHED_RR 79);\n"
           "                     default 2. Without the right to real-time scheduling the thread keeps\n"
           "                     its normal policy with a minimal timer slack.\n"
           "  -n, --ticks N      number of ticks to print; default 167 (about one second)\n"
           "  -t, --trace LEVEL  trace level of the library (module ZYN.TS), 0 to 7; default from\n"
           "                     KIV_TRACE, otherwise 3. Traces go to stderr.\n";
}
