// Reading an object's bytes the way separately built client code does: at a
// fixed offset, without going through the declared members.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

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

}  // namespace raw_bytes
