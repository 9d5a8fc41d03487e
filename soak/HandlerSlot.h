// One handle variable of a churning client and the tick function behind it.
// The slot outlives every registration made through it, so a call that comes
// after its unregistration has returned still lands here and is caught.
#pragma once

#include <atomic>
#include <cstdint>

#include "HandlerLog.h"
#include "ITickReceiver.h"
#include "PassClock.h"
#include "STickHandler.h"

namespace soak {

enum class SlotState : int { Idle, Live, Gone };

struct HandlerSlot {
    using RemoveFromTick = uint32_t (*)(STickHandler** handle);

    ITickReceiver receiver() { return ITickReceiver{this, &HandlerSlot::onTick}; }

    // Set up by the owning client before each registration.
    PassClock* clock = nullptr;
    bool registered = false;  ///< the client's view: a registration is under way
    HandlerLog log;           ///< its calls are appended by the tick thread
    std::atomic<int> state{static_cast<int>(SlotState::Idle)};
    char name[32] = {};
    uint32_t interval = 1;
    bool enabled = true;
    bool member[2] = {false, false};
    int64_t endAtNs = 0;

    // A handler that unregisters itself from its tick function after
    // `removeAfterCalls` calls, through `removeFromTick`. The client leaves
    // the slot alone until `selfRemoved` is set.
    bool selfRemoving = false;
    uint32_t removeAfterCalls = 0;
    RemoveFromTick removeFromTick = nullptr;
    std::atomic<bool> handlePublished{false};
    std::atomic<bool> selfRemoved{false};
    uint32_t selfRemoveResult = 0;
    uint64_t selfRemovedInPass = 0;

    /// The client's handle variable.
    STickHandler* handle = nullptr;

    /// Calls that came after the registration had ended.
    std::atomic<uint64_t> lateCalls{0};

    static void onTick(void* context);
};

}  // namespace soak
