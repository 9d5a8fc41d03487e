// A client thread that churns handlers on one of the schedulers while its
// ticks run: registers and unregisters them, switches them on and off, moves
// them, shifts their phase, and (in group mode) moves them in and out of the
// tick groups and switches the groups. Every registration's calls are checked
// against what the client did (HandlerLog) when the registration ends.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <random>

#include "HandlerSlot.h"
#include "ITickScheduler.h"
#include "ITickSchedulerFast.h"
#include "PassClock.h"

namespace soak {

/// The operations of one scheduler, as a client reaches them.
struct SchedulerApi {
    bool fast;  ///< CTickSchedulerFast: no intervals, priorities or offsets; changes without the tick lock
    ITickScheduler* scheduler;
    ITickSchedulerFast* fastScheduler;

    uint32_t registerHandler(STickHandler** handle, const ITickReceiver* receiver, uint32_t interval,
                             const char* name) const;
    uint32_t unregisterHandler(STickHandler** handle) const;
    HandlerSlot::RemoveFromTick removeFromTick() const;
    uint32_t enable(STickHandler* handle, bool on) const;
    uint32_t addGroup(STickHandler* handle, uint32_t group, bool add) const;
    uint32_t switchGroup(uint32_t group, bool disable) const;
};

/// What one client did, and how many handler calls it checked.
struct ChurnStats {
    uint64_t registrations = 0;
    uint64_t selfRemovals = 0;
    uint64_t operations = 0;
    uint64_t callsChecked = 0;
};

class ChurnClient {
public:
    enum class Mode {
        Handlers,  ///< enable/disable, priorities, offsets, self-removal
        Groups,    ///< group membership and group switching
    };

    static constexpr size_t kSlots = 8;

    ChurnClient(const SchedulerApi& api, PassClock& clock, Mode mode, uint32_t index, uint32_t seed);
    ChurnClient(const ChurnClient&) = delete;
    ChurnClient& operator=(const ChurnClient&) = delete;

    /// Churns until `stop` is set, then ends every registration.
    void run(const std::atomic<bool>& stop);

    const ChurnStats& stats() const { return counters; }

    /// How many handlers this client can have registered at once.
    static constexpr size_t capacity() { return kSlots; }

private:
    void step();
    void registerSlot(HandlerSlot& slot);
    void unregisterSlot(HandlerSlot& slot);
    bool collectSelfRemoved(HandlerSlot& slot);
    void finishRegistration(HandlerSlot& slot);
    void toggleEnabled(HandlerSlot& slot);
    void changePriority(HandlerSlot& slot);
    void changeOffset(HandlerSlot& slot);
    void changeMembership(HandlerSlot& slot);
    void switchGroup();
    void expectResult(uint32_t result, uint32_t expected, const char* operation, const HandlerSlot* slot);
    uint32_t random(uint32_t bound) { return std::uniform_int_distribution<uint32_t>(0, bound - 1)(generator); }

    SchedulerApi api;
    PassClock& clock;
    Mode mode;
    uint32_t index;
    std::mt19937 generator;
    std::array<HandlerSlot, kSlots> slots;
    uint64_t generation = 0;
    ChurnStats counters;

    // The groups as this client (the only one that switches them) left them,
    // with the pass readings around the last switch.
    struct GroupHistory {
        bool earlier = false;
        bool now = false;
        uint64_t before = 0;
        uint64_t after = 0;
    };
    GroupHistory groups[2];
};

}  // namespace soak
