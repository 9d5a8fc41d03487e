#include "Violations.h"

#include <cstdio>

namespace soak {

namespace {
// Past this many the report only counts, so a systematic failure does not
// drown the summary.
constexpr uint64_t kPrinted = 50;
}  // namespace

Violations& Violations::instance() {
    static Violations violations;
    return violations;
}

void Violations::report(const char* format, ...) {
    const uint64_t number = total.fetch_add(1) + 1;
    if (number > kPrinted) {
        return;
    }
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "VIOLATION %llu: %s\n", static_cast<unsigned long long>(number), text);
}

}  // namespace soak
