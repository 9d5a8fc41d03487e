#include "StatusPrinter.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace tickmon {

StatusPrinter::StatusPrinter(bool enabled) : active(enabled), terminal(isatty(STDERR_FILENO) == 1) {}

void StatusPrinter::print(const StatusFigures& figures) {
    if (!active) {
        return;
    }
    const std::string line = formatStatusLine(figures);
    if (terminal) {
        std::fprintf(stderr, "\r%s\033[K", line.c_str());
    } else {
        std::fprintf(stderr, "%s\n", line.c_str());
    }
    std::fflush(stderr);
}

void StatusPrinter::finish(const StatusFigures& figures) {
    print(figures);
    if (active && terminal) {
        std::fprintf(stderr, "\n");
        std::fflush(stderr);
    }
}

}  // namespace tickmon
