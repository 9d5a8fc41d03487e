// The tick groups both modules offer: a handler belongs to any of groups 0
// and 1, one bit a group, and a module-wide mask disables whole groups.
#pragma once

#include <cstdint>

namespace zyn_ts {

constexpr uint32_t kHighestGroupId = 1;

constexpr bool isGroupIdValid(uint32_t groupId) { return groupId <= kHighestGroupId; }

/// The group's bit in a handler's `groupMask` and in a module's disabled mask.
constexpr uint32_t groupBit(uint32_t groupId) { return 1u << groupId; }

/// Group ids are unsigned for the bound test and signed in messages.
constexpr int32_t groupIdForDisplay(uint32_t groupId) { return static_cast<int32_t>(groupId); }

}  // namespace zyn_ts
