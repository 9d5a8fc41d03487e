#include "HandlerSlot.h"

#include "Violations.h"

namespace soak {

void HandlerSlot::onTick(void* context) {
    auto* slot = static_cast<HandlerSlot*>(context);
    if (slot->state.load(std::memory_order_acquire) != static_cast<int>(SlotState::Live)) {
        slot->lateCalls.fetch_add(1, std::memory_order_relaxed);
        Violations::instance().report("%s: called after its unregistration had returned", slot->name);
        return;
    }
    const uint64_t pass = slot->clock->current();
    slot->log.called(pass);
    if (slot->selfRemoving && !slot->selfRemoved.load(std::memory_order_relaxed) &&
        slot->log.callCount() >= slot->removeAfterCalls && slot->handlePublished.load(std::memory_order_acquire)) {
        slot->selfRemoveResult = slot->removeFromTick(&slot->handle);
        slot->selfRemovedInPass = pass;
        slot->state.store(static_cast<int>(SlotState::Gone), std::memory_order_release);
        slot->selfRemoved.store(true, std::memory_order_release);
    }
}

}  // namespace soak
