// The two directions of the fuzz input format.
//
// InputDecoder reads an input through clang's FuzzedDataProvider: numbers
// come off the end of the input, byte strings off the front, and an input
// that runs out yields the smallest value of each range, so every byte
// string decodes to some sequence of operations. InputEncoder writes the
// bytes that make the decoder read given values, which is how the seed
// inputs are made.
//
// Both offer the same primitives, so an operation's layout is written once,
// as a template over the direction (see OpCodec.h): decoding fills the
// fields, encoding reads them.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zyn_fuzz {

/// Values a 32-bit argument favours: the edges of the range, the sign
/// boundary and a few small numbers. Other values come as "small" (below
/// kSmallLimit) or "any".
constexpr uint32_t kEdgeValues[] = {0, 1, 2, 3, UINT32_MAX, UINT32_MAX - 1, 0x80000000u, 0x7FFFFFFFu, 5, 7};
constexpr size_t kEdgeCount = sizeof(kEdgeValues) / sizeof(kEdgeValues[0]);
constexpr uint8_t kSmallSelector = kEdgeCount;
constexpr uint8_t kAnySelector = kEdgeCount + 1;
constexpr uint32_t kSmallLimit = 16;

/// Index of `value` in `table`, or `size` when it is not there.
template <size_t N>
size_t indexIn(const uint32_t (&table)[N], uint32_t value) {
    return static_cast<size_t>(std::find(table, table + N, value) - table);
}

class InputDecoder {
public:
    InputDecoder(const uint8_t* data, size_t size) : provider(data, size) {}

    bool exhausted() { return provider.remaining_bytes() == 0; }

    /// A number in 0..`max`.
    template <typename T>
    void inRange(T& value, T max) {
        value = provider.ConsumeIntegralInRange<T>(0, max);
    }
    void any(uint32_t& value) { value = provider.ConsumeIntegral<uint32_t>(); }

    /// Mostly zero: a whole byte, kept only when it is below `limit`.
    void mostlyZero(uint8_t& value, uint8_t limit) {
        const auto raw = provider.ConsumeIntegral<uint8_t>();
        value = raw < limit ? raw : 0;
    }

    /// One value of `table`, or with `withAny` also any 32-bit value.
    template <size_t N>
    void oneOf(uint32_t& value, const uint32_t (&table)[N], bool withAny) {
        const auto selector = provider.ConsumeIntegralInRange<size_t>(0, withAny ? N : N - 1);
        if (selector < N) {
            value = table[selector];
        } else {
            any(value);
        }
    }

    void interesting32(uint32_t& value) {
        uint8_t selector = 0;
        inRange(selector, kAnySelector);
        if (selector < kEdgeCount) {
            value = kEdgeValues[selector];
        } else if (selector == kSmallSelector) {
            value = provider.ConsumeIntegralInRange<uint32_t>(0, kSmallLimit - 1);
        } else {
            any(value);
        }
    }

    /// A byte string of up to `maxLength` bytes, NULs included.
    void text(std::string& value, uint8_t maxLength) {
        uint8_t length = 0;
        inRange(length, maxLength);
        value = provider.ConsumeBytesAsString(length);
    }

private:
    FuzzedDataProvider provider;
};

class InputEncoder {
public:
    /// The input that makes a decoder read what was written, in order.
    std::string bytes() const {
        std::string input = front;
        input.append(back.rbegin(), back.rend());
        return input;
    }

    template <typename T>
    void inRange(T value, T max) {
        number(value, max, sizeof(T));
    }
    void any(uint32_t value) { number(value, UINT32_MAX, sizeof(uint32_t)); }
    void mostlyZero(uint8_t value, uint8_t /*limit*/) { number(value, UINT8_MAX, sizeof(uint8_t)); }

    template <size_t N>
    void oneOf(uint32_t value, const uint32_t (&table)[N], bool withAny) {
        const size_t selector = indexIn(table, value);
        number(selector, withAny ? N : N - 1, sizeof(size_t));
        if (selector == N) {
            any(value);
        }
    }

    void interesting32(uint32_t value) {
        const size_t edge = indexIn(kEdgeValues, value);
        if (edge < kEdgeCount) {
            inRange(static_cast<uint8_t>(edge), kAnySelector);
        } else if (value < kSmallLimit) {
            inRange(kSmallSelector, kAnySelector);
            number(value, kSmallLimit - 1, sizeof(uint32_t));
        } else {
            inRange(kAnySelector, kAnySelector);
            any(value);
        }
    }

    void text(const std::string& value, uint8_t maxLength) {
        inRange(static_cast<uint8_t>(std::min<size_t>(value.size(), maxLength)), maxLength);
        front += value.substr(0, maxLength);
    }

private:
    /// The bytes the provider takes off the end for a number in 0..`range`
    /// of a `width`-byte type: as many as the range needs, the most
    /// significant first.
    void number(uint64_t value, uint64_t range, size_t width) {
        size_t count = 0;
        while (count < width && (range >> (count * CHAR_BIT)) > 0) {
            ++count;
        }
        for (size_t i = count; i-- > 0;) {
            back.push_back(static_cast<char>((value >> (i * CHAR_BIT)) & 0xFFu));
        }
    }

    std::string front;
    std::vector<char> back;  ///< in the order the decoder takes them
};

}  // namespace zyn_fuzz
