#include "ChurnClient.h"

#include <chrono>
#include <cstdio>
#include <thread>

#include "TickResultCodes.h"
#include "Violations.h"
#include "ZynSupport/MonotonicClock.h"

namespace soak {

namespace {

constexpr uint32_t kIntervals[] = {0, 1, 1, 2, 3, 4, 5, 8};

}  // namespace

uint32_t SchedulerApi::registerHandler(STickHandler** handle, const ITickReceiver* receiver, uint32_t interval,
                                       const char* name) const {
    return fast ? fastScheduler->RegisterTickHandler(handle, receiver, name)
                : scheduler->RegisterTickHandler(handle, receiver, interval, name);
}

uint32_t SchedulerApi::unregisterHandler(STickHandler** handle) const {
    return fast ? fastScheduler->UnregisterTickHandler(handle) : scheduler->UnregisterTickHandler(handle);
}

HandlerSlot::RemoveFromTick SchedulerApi::removeFromTick() const {
    // The interval scheduler's own unregister may be called from a tick
    // function; the fast one has a variant for it.
    return fast ? fastScheduler->UnregisterTickHandlerFromOnTick : scheduler->UnregisterTickHandler;
}

uint32_t SchedulerApi::enable(STickHandler* handle, bool on) const {
    if (fast) {
        return on ? fastScheduler->EnableTickHandler(handle) : fastScheduler->DisableTickHandler(handle);
    }
    return on ? scheduler->EnableTickHandler(handle) : scheduler->DisableTickHandler(handle);
}

uint32_t SchedulerApi::addGroup(STickHandler* handle, uint32_t group, bool add) const {
    if (fast) {
        return add ? fastScheduler->AddGroup(handle, group) : fastScheduler->RemoveGroup(handle, group);
    }
    return add ? scheduler->AddGroup(handle, group) : scheduler->RemoveGroup(handle, group);
}

uint32_t SchedulerApi::switchGroup(uint32_t group, bool disable) const {
    if (fast) {
        return disable ? fastScheduler->DisableTickGroup(group) : fastScheduler->EnableTickGroup(group);
    }
    return disable ? scheduler->DisableTickGroup(group) : scheduler->EnableTickGroup(group);
}

ChurnClient::ChurnClient(const SchedulerApi& api, PassClock& clock, Mode mode, uint32_t index, uint32_t seed)
    : api(api), clock(clock), mode(mode), index(index), generator(seed) {
    for (HandlerSlot& slot : slots) {
        slot.clock = &clock;
    }
}

void ChurnClient::run(const std::atomic<bool>& stop) {
    while (!stop.load()) {
        step();
        std::this_thread::sleep_for(std::chrono::microseconds(random(2500)));
    }
    for (HandlerSlot& slot : slots) {
        if (!slot.registered) {
            continue;
        }
        if (slot.selfRemoving) {
            // It removes itself within a few passes; give it ample time.
            for (int wait = 0; wait < 5000 && !collectSelfRemoved(slot); ++wait) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            if (slot.registered) {
                Violations::instance().report("%s: never removed itself", slot.name);
            }
        } else {
            unregisterSlot(slot);
        }
    }
}

void ChurnClient::step() {
    ++counters.operations;
    if (mode == Mode::Groups && random(5) == 0) {
        switchGroup();
        return;
    }
    HandlerSlot& slot = slots[random(kSlots)];
    if (!slot.registered) {
        registerSlot(slot);
        return;
    }
    if (slot.selfRemoving) {
        collectSelfRemoved(slot);
        return;
    }
    if (zyn_support::monotonicNowNs() >= slot.endAtNs) {
        unregisterSlot(slot);
        return;
    }
    const uint32_t choice = random(10);
    if (mode == Mode::Groups && choice < 5) {
        changeMembership(slot);
    } else if (mode == Mode::Handlers && choice < 5) {
        toggleEnabled(slot);
    } else if (!api.fast && choice < 7) {
        changePriority(slot);
    } else if (!api.fast && choice < 9) {
        changeOffset(slot);
    }
}

void ChurnClient::registerSlot(HandlerSlot& slot) {
    std::snprintf(slot.name, sizeof(slot.name), "%s%u-%llu", api.fast ? "fast" : "tick", index,
                  static_cast<unsigned long long>(generation++));
    slot.interval = api.fast ? 0 : kIntervals[random(sizeof(kIntervals) / sizeof(kIntervals[0]))];
    slot.enabled = true;
    slot.member[0] = slot.member[1] = false;
    slot.endAtNs = zyn_support::monotonicNowNs() + (50 + random(1950)) * zyn_support::kNanosecondsPerMillisecond;
    slot.selfRemoving = mode == Mode::Handlers && random(4) == 0;
    slot.removeAfterCalls = 1 + random(5);
    slot.removeFromTick = api.removeFromTick();
    slot.selfRemoved.store(false);
    // The handle variable belongs to the client until it is published: only
    // then may a self-removing tick function unregister through it.
    slot.handlePublished.store(false);

    const uint64_t before = clock.current();
    slot.log.begin(slot.name, slot.interval, Applies{!api.fast}, before);
    if (mode == Mode::Groups) {
        for (uint32_t group = 0; group < 2; ++group) {
            const GroupHistory& history = groups[group];
            slot.log.groupHistory(group, history.earlier, history.now, history.before, history.after);
        }
    }
    slot.state.store(static_cast<int>(SlotState::Live), std::memory_order_release);
    const ITickReceiver receiver = slot.receiver();
    const uint32_t result = api.registerHandler(&slot.handle, &receiver, slot.interval, slot.name);
    slot.log.registered(clock.current());
    ++counters.registrations;
    slot.registered = result == TickResult::Success && slot.handle != nullptr;
    if (!slot.registered) {
        expectResult(result, TickResult::Success, "register", &slot);
        slot.state.store(static_cast<int>(SlotState::Idle));
    }
    slot.handlePublished.store(true, std::memory_order_release);
}

void ChurnClient::unregisterSlot(HandlerSlot& slot) {
    const uint64_t before = clock.current();
    const uint32_t result = api.unregisterHandler(&slot.handle);
    const uint64_t after = clock.current();
    expectResult(result, TickResult::Success, "unregister", &slot);
    if (slot.handle != nullptr) {
        Violations::instance().report("%s: the handle variable was not cleared", slot.name);
    }
    slot.state.store(static_cast<int>(SlotState::Gone), std::memory_order_release);
    slot.log.end(before, after);
    finishRegistration(slot);
}

bool ChurnClient::collectSelfRemoved(HandlerSlot& slot) {
    if (!slot.selfRemoved.load(std::memory_order_acquire)) {
        return false;
    }
    ++counters.selfRemovals;
    expectResult(slot.selfRemoveResult, TickResult::Success, "unregister from the tick function", &slot);
    if (slot.handle != nullptr) {
        Violations::instance().report("%s: the handle variable was not cleared by the removal", slot.name);
    }
    slot.log.end(slot.selfRemovedInPass, slot.selfRemovedInPass);
    finishRegistration(slot);
    return true;
}

void ChurnClient::finishRegistration(HandlerSlot& slot) {
    slot.registered = false;
    counters.callsChecked += slot.log.verify();
}

void ChurnClient::toggleEnabled(HandlerSlot& slot) {
    const bool on = !slot.enabled;
    const uint64_t before = clock.current();
    const uint32_t result = api.enable(slot.handle, on);
    const uint64_t after = clock.current();
    expectResult(result, TickResult::Success, on ? "enable" : "disable", &slot);
    slot.enabled = on;
    slot.log.enabledChange(on, before, after);
}

void ChurnClient::changePriority(HandlerSlot& slot) {
    // Between -50 and 50: the metronome at -100 stays in front of them all.
    const auto priority = static_cast<int32_t>(random(101)) - 50;
    expectResult(api.scheduler->SetTickPriority(slot.handle, priority), TickResult::Success, "set priority", &slot);
}

void ChurnClient::changeOffset(HandlerSlot& slot) {
    const uint32_t offset = random(slot.interval + 2);
    const uint64_t before = clock.current();
    const uint32_t result = api.scheduler->SetStartOffset(slot.handle, offset);
    const uint64_t after = clock.current();
    if (offset < slot.interval) {
        expectResult(result, TickResult::Success, "set start offset", &slot);
        slot.log.phaseChange(before, after);
    } else {
        expectResult(result, TickResult::OutOfRange, "set start offset not below the interval", &slot);
    }
}

void ChurnClient::changeMembership(HandlerSlot& slot) {
    const uint32_t group = random(2);
    const bool join = !slot.member[group];
    const uint64_t before = clock.current();
    const uint32_t result = api.addGroup(slot.handle, group, join);
    const uint64_t after = clock.current();
    expectResult(result, TickResult::Success, join ? "add to group" : "remove from group", &slot);
    slot.member[group] = join;
    slot.log.membershipChange(group, join, before, after);
}

void ChurnClient::switchGroup() {
    const uint32_t group = random(2);
    GroupHistory& history = groups[group];
    const bool disable = !history.now;
    const uint64_t before = clock.current();
    const uint32_t result = api.switchGroup(group, disable);
    const uint64_t after = clock.current();
    expectResult(result, TickResult::Success, disable ? "disable group" : "enable group", nullptr);
    history = GroupHistory{history.now, disable, before, after};
    for (HandlerSlot& slot : slots) {
        if (slot.registered) {
            slot.log.groupStateChange(group, disable, before, after);
        }
    }
}

void ChurnClient::expectResult(uint32_t result, uint32_t expected, const char* operation, const HandlerSlot* slot) {
    if (result != expected) {
        Violations::instance().report("%s: %s returned %u, expected %u", slot != nullptr ? slot->name : "group",
                                      operation, result, expected);
    }
}

}  // namespace soak
