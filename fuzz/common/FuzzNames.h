// Handler names as a hostile client would pass them: empty, around the
// 31-character limit of the record, up to 4096 bytes long, non-ASCII, with
// or without a terminator after the first 32 bytes.
#pragma once

#include <cstdint>
#include <string>

#include "ByteReader.h"

namespace zyn_fuzz {

/// The bytes of a name buffer. What the library sees is the C string at
/// `buffer.c_str()`, which ends at the first NUL of the buffer.
inline std::string decodeName(ByteReader& input) {
    const uint8_t mode = input.byte() % 4;
    if (mode == 0) {
        return std::string();
    }
    if (mode == 1) {
        // Short and taken from the input itself, NULs included.
        return input.bytes(input.byte() % 48u);
    }
    if (mode == 2) {
        // Around the record's limit: 30 to 33 characters ending in a byte
        // with the top bit set.
        const size_t length = 30u + input.byte() % 4u;
        std::string name;
        for (size_t i = 0; i + 1 < length; ++i) {
            name.push_back(static_cast<char>('A' + i % 26));
        }
        name.push_back(static_cast<char>(0xE9));
        return name;
    }
    // Long and generated: no NUL in the first 32 bytes, then maybe one.
    const size_t length = input.u16() % 4097u;
    const uint8_t seed = input.byte();
    const uint8_t terminatorSlot = input.byte();
    std::string name(length, '\0');
    for (size_t i = 0; i < length; ++i) {
        uint8_t value = static_cast<uint8_t>(seed + i * 7u + (i >> 3));
        if (value == 0) {
            value = 0xA5;
        }
        name[i] = static_cast<char>(value);
    }
    const size_t terminatorAt = 32u + terminatorSlot * 16u;
    if (terminatorSlot != 0 && terminatorAt < length) {
        name[terminatorAt] = '\0';
    }
    return name;
}

/// What a C function reading `buffer.c_str()` sees.
inline std::string asCString(const std::string& buffer) { return std::string(buffer.c_str()); }

/// The name a record keeps: "%s" into a 32-byte field.
inline std::string storedName(const std::string& buffer) { return asCString(buffer).substr(0, 31); }

/// Printable form of a name for failure reports.
inline std::string printable(const std::string& text) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : text.substr(0, 64)) {
        if (c >= 0x20 && c < 0x7F && c != '\\') {
            out.push_back(static_cast<char>(c));
        } else {
            out += "\\x";
            out.push_back(digits[c >> 4]);
            out.push_back(digits[c & 0xF]);
        }
    }
    if (text.size() > 64) {
        out += "...(" + std::to_string(text.size()) + " bytes)";
    }
    return out;
}

}  // namespace zyn_fuzz
