// Reading an object's bytes the way separately built client code does: at a
// fixed offset, without going through the declared members.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace raw_bytes {

/// The value of type T stored at `offset` bytes into `object`.
template <typename T>
T readAt(const void* object, std::size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const unsigned char*>(object) + offset, sizeof value);
    return value;
}

/// A function pointer's bits as an integer, so that slots can be compared
/// with the functions they should hold whatever their signatures.
template <typename Function>
std::uintptr_t bitsOf(Function* function) {
    static_assert(sizeof function == sizeof(std::uintptr_t), "function pointers are pointer-sized");
    std::uintptr_t bits;
    std::memcpy(&bits, &function, sizeof bits);
    return bits;
}

/// Distance in bytes from `object` to `member`, a member of that object.
template <typename Object, typename Member>
std::size_t offsetWithin(const Object& object, const Member& member) {
    return static_cast<std::size_t>(reinterpret_cast<const unsigned char*>(&member) -
                                    reinterpret_cast<const unsigned char*>(&object));
}

/// A record client code may copy as bytes and read at fixed offsets.
template <typename Record>
constexpr bool kPlainRecord = std::is_standard_layout<Record>::value&& std::is_trivially_copyable<Record>::value;

/// True when a record's layout, written as the offsets of its fields in
/// declaration order followed by its size, is the `expected` one.
template <std::size_t N>
constexpr bool laidOutAs(const std::size_t (&offsetsThenSize)[N], const std::size_t (&expected)[N]) {
    for (std::size_t i = 0; i < N; ++i) {
        if (offsetsThenSize[i] != expected[i]) {
            return false;
        }
    }
    return true;
}

}  // namespace raw_bytes
