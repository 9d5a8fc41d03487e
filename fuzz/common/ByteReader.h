// Reads a fuzz input as a stream of small values. Reading past the end yields
// zeros, so every byte string decodes to some sequence of operations.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zyn_fuzz {

class ByteReader {
public:
    ByteReader(const uint8_t* data, size_t size) : data(data), size(size) {}

    bool exhausted() const { return position >= size; }

    uint8_t byte() { return position < size ? data[position++] : 0; }

    uint16_t u16() {
        const uint16_t low = byte();
        return static_cast<uint16_t>(low | (byte() << 8));
    }

    uint32_t u32() {
        const uint32_t low = u16();
        return low | (static_cast<uint32_t>(u16()) << 16);
    }

    /// A 32-bit value that favours the edges of the range: 0, 1, 2, 3, the
    /// largest values, the sign boundary, small numbers, and any value.
    uint32_t interesting32() {
        const uint8_t selector = byte();
        switch (selector % 12) {
            case 0:
                return 0;
            case 1:
                return 1;
            case 2:
                return 2;
            case 3:
                return 3;
            case 4:
                return UINT32_MAX;
            case 5:
                return UINT32_MAX - 1;
            case 6:
                return 0x80000000u;
            case 7:
                return 0x7FFFFFFFu;
            case 8:
                return byte() % 16u;
            case 9:
                return u32();
            case 10:
                return 5;
            default:
                return selector % 8u;
        }
    }

    /// `count` raw bytes (zeros past the end).
    std::string bytes(size_t count) {
        std::string text;
        text.reserve(count);
        for (size_t i = 0; i < count; ++i) {
            text.push_back(static_cast<char>(byte()));
        }
        return text;
    }

private:
    const uint8_t* data;
    size_t size;
    size_t position = 0;
};

}  // namespace zyn_fuzz
