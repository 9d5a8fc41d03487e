// Sizes and markers both fuzz targets share: the handle variables a client
// holds, the clients, the null-argument variants of Register, and the counts
// of platform calls a model keeps.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zyn_fuzz {

/// Handle variables of the clients; slot kNullSlot stands for a null pointer.
constexpr size_t kSlots = 12;
constexpr uint8_t kNullSlot = kSlots;
constexpr size_t kClients = 8;

/// How deep operations may be armed inside tick functions.
constexpr int kMaxArmDepth = 2;
/// Operations decoded from one input at most.
constexpr size_t kMaxOperations = 512;

/// Null-argument variants of Register.
constexpr uint8_t kNullHandleVariable = 1;
constexpr uint8_t kNullReceiver = 2;
constexpr uint8_t kNullName = 4;

/// A record id that names no record.
constexpr uint32_t kNoRecord = UINT32_MAX;

/// Counts of the calls the module must have made to the platform.
struct PlatformCalls {
    size_t moduleRegistrations = 0;
    size_t callbackRegistrations = 0;
    size_t interfaceRegistrations = 0;
    size_t interfaceWithdrawals = 0;
};

}  // namespace zyn_fuzz
