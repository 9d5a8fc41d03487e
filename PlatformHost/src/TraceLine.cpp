#include "TraceLine.h"

#include <cstdio>

namespace platform_host::detail {

namespace {

const char* orPlaceholder(const char* text) { return text != nullptr ? text : "?"; }

void appendOnOneLine(std::string& line, const std::string& text) {
    for (char character : text) {
        if (character == '\n') {
            line += "\\n";
        } else if (character == '\r') {
            line += "\\r";
        } else {
            line += character;
        }
    }
}

std::string prefix(const TraceLineFields& fields) {
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "%lld.%06ld %ld ", static_cast<long long>(fields.timestamp.tv_sec),
                  static_cast<long>(fields.timestamp.tv_nsec / 1000), static_cast<long>(fields.threadId));
    std::string line(stamp);
    line += *fields.moduleName;
    line += " L";
    line += std::to_string(fields.level);
    line += ' ';
    if ((fields.headerOption & KIV_TRACE_HDR_FILE_LINE) != 0) {
        line += orPlaceholder(fields.header->file);
        line += ':';
        line += std::to_string(fields.header->line);
        line += ' ';
    }
    return line;
}

}  // namespace

std::string formatTraceLine(const TraceLineFields& fields) {
    std::string line = prefix(fields);
    const char* function = orPlaceholder(fields.header->function);
    if (fields.entry) {
        line += "-> ";
        line += function;
        if (fields.text != nullptr && !fields.text->empty()) {
            line += ": ";
            appendOnOneLine(line, *fields.text);
        }
        return line;
    }
    if ((fields.headerOption & KIV_TRACE_HDR_FUNCTION) != 0) {
        line += function;
        line += ": ";
    }
    if (fields.text != nullptr) {
        appendOnOneLine(line, *fields.text);
    }
    return line;
}

}  // namespace platform_host::detail
