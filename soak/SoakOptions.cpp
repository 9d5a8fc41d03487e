#include "SoakOptions.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace soak {

namespace {

void printUsage(const char* program) {
    std::fprintf(
        stderr,
        "usage: %s [--seconds N] [--seed N]\n"
        "  Runs both tick schedulers with client threads churning handlers for N seconds\n"
        "  (default 600) and checks calls, late calls, every pass on its own grid point and memory at the end.\n"
        "  Exit status 0 when every check holds.\n",
        program);
}

bool parseNumber(const char* text, uint32_t& value) {
    char* end = nullptr;
    const unsigned long number = std::strtoul(text, &end, 10);
    if (end == text || *end != '\0' || number > UINT32_MAX) {
        return false;
    }
    value = static_cast<uint32_t>(number);
    return true;
}

}  // namespace

bool parseOptions(int argc, char** argv, SoakOptions& options) {
    for (int i = 1; i < argc; i += 2) {
        uint32_t* target = nullptr;
        if (std::strcmp(argv[i], "--seconds") == 0) {
            target = &options.seconds;
        } else if (std::strcmp(argv[i], "--seed") == 0) {
            target = &options.seed;
        }
        if (target == nullptr || i + 1 >= argc || !parseNumber(argv[i + 1], *target)) {
            printUsage(argv[0]);
            return false;
        }
    }
    return true;
}

}  // namespace soak
