#include "JsonWriter.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace tickmon {

std::string JsonWriter::quote(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        switch (c) {
            case '"':
                quoted += "\\\"";
                break;
            case '\\':
                quoted += "\\\\";
                break;
            case '\n':
                quoted += "\\n";
                break;
            case '\r':
                quoted += "\\r";
                break;
            case '\t':
                quoted += "\\t";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
                    quoted += escaped;
                } else {
                    quoted += c;
                }
        }
    }
    return quoted + "\"";
}

void JsonWriter::newline() {
    out += '\n';
    out.append(levels.size() * 2, ' ');
}

void JsonWriter::beforeValue() {
    if (afterKey) {
        afterKey = false;
        return;
    }
    if (!levels.empty()) {
        if (!levels.back().empty) {
            out += ',';
        }
        levels.back().empty = false;
        newline();
    }
}

JsonWriter& JsonWriter::open(char bracket, bool isObject) {
    beforeValue();
    out += bracket;
    levels.push_back(Level{isObject, true});
    return *this;
}

JsonWriter& JsonWriter::close(char bracket) {
    const bool wasEmpty = levels.back().empty;
    levels.pop_back();
    if (!wasEmpty) {
        newline();
    }
    out += bracket;
    return *this;
}

JsonWriter& JsonWriter::beginObject() { return open('{', true); }
JsonWriter& JsonWriter::endObject() { return close('}'); }
JsonWriter& JsonWriter::beginArray() { return open('[', false); }
JsonWriter& JsonWriter::endArray() { return close(']'); }

JsonWriter& JsonWriter::key(const std::string& name) {
    beforeValue();
    out += quote(name);
    out += ": ";
    afterKey = true;
    return *this;
}

JsonWriter& JsonWriter::value(const std::string& text) {
    beforeValue();
    out += quote(text);
    return *this;
}

JsonWriter& JsonWriter::value(const char* text) { return value(std::string(text)); }

JsonWriter& JsonWriter::value(bool flag) {
    beforeValue();
    out += flag ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::value(int64_t number) {
    beforeValue();
    char text[32];
    std::snprintf(text, sizeof text, "%" PRId64, number);
    out += text;
    return *this;
}

JsonWriter& JsonWriter::value(uint64_t number) {
    beforeValue();
    char text[32];
    std::snprintf(text, sizeof text, "%" PRIu64, number);
    out += text;
    return *this;
}

JsonWriter& JsonWriter::value(double number) {
    if (!std::isfinite(number)) {
        return null();
    }
    beforeValue();
    char text[40];
    // The shorter form when it reads back as the same double, else the 17
    // digits that always do.
    std::snprintf(text, sizeof text, "%.15g", number);
    if (std::strtod(text, nullptr) != number) {
        std::snprintf(text, sizeof text, "%.17g", number);
    }
    out += text;
    return *this;
}

JsonWriter& JsonWriter::null() {
    beforeValue();
    out += "null";
    return *this;
}

std::string JsonWriter::text() const { return levels.empty() && !out.empty() ? out + "\n" : out; }

}  // namespace tickmon
