#include "TraceLine.h"

#include <cstdio>

namespace platform_host::detail {

namespace {

const char* orPlaceholder(const char* text) { return text != nullptr ? text : "?"; }

void appendOnOneLine(std::string& line, const std::string& text) {
    for (char character : text) {
        if (character == '\n' || character == '\r') {
            line += character == '\n' ? "\\n" : "\\r";
        } else {
            line += character;
        }
    }
}

}  // namespace

std::string formatTraceLine(const TraceLineFields& fields) {
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "%lld.%06ld %ld ", static_cast<long long>(fields.timestamp.tv_sec),
                  static_cast<long>(fields.timestamp.tv_nsec / 1000), static_cast<long>(fields.threadId));
    std::string line = stamp + *fields.moduleName + " L" + std::to_string(fields.level) + ' ';
    if ((fields.headerOption & KIV_TRACE_HDR_FILE_LINE) != 0) {
        line += std::string(orPlaceholder(fields.header->file)) + ':' + std::to_string(fields.header->line) + ' ';
    }
    const std::string function = orPlaceholder(fields.header->function);
    if (fields.entry) {
        line += "-> " + function + (fields.text != nullptr && !fields.text->empty() ? ": " : "");
    } else if ((fields.headerOption & KIV_TRACE_HDR_FUNCTION) != 0) {
        line += function + ": ";
    }
    if (fields.text != nullptr) {
        appendOnOneLine(line, *fields.text);
    }
    return line;
}

}  // namespace platform_host::detail
