// The slots that both interface objects have, with the same types: handler
// enable and disable, unregistering, and the four group operations. Each
// module fills its other slots itself.
#pragma once

#include <cstdint>

#include "STickHandler.h"

namespace zyn_ts {

/// Fills the shared slots of `object` (ITickScheduler or ITickSchedulerFast)
/// with one module's operations, given in slot order.
template <typename Interface>
void fillSharedSlots(Interface& object, uint32_t (*unregisterTickHandler)(STickHandler**),
                     uint32_t (*enableTickHandler)(STickHandler*), uint32_t (*disableTickHandler)(STickHandler*),
                     uint32_t (*addGroup)(STickHandler*, uint32_t), uint32_t (*removeGroup)(STickHandler*, uint32_t),
                     uint32_t (*enableTickGroup)(uint32_t), uint32_t (*disableTickGroup)(uint32_t)) {
    object.UnregisterTickHandler = unregisterTickHandler;
    object.EnableTickHandler = enableTickHandler;
    object.DisableTickHandler = disableTickHandler;
    object.AddGroup = addGroup;
    object.RemoveGroup = removeGroup;
    object.EnableTickGroup = enableTickGroup;
    object.DisableTickGroup = disableTickGroup;
}

}  // namespace zyn_ts
