// One registration of a churned handler, as its client saw it: the passes
// between which it was registered and unregistered, every change of its
// enabled state, groups and phase with the passes around the call, and the
// passes in which its tick function ran. verify() checks the calls against
// the interval and the enabled time, to within the passes the client could
// not tell apart.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Timeline.h"

namespace soak {

/// When a change made between pass counter readings `before` and `after`
/// may first apply: through the tick lock a change lands between passes, so
/// never in pass `before`; without it a change can reach a pass in progress.
struct Applies {
    bool lockedChanges;
    uint64_t possiblyFrom(uint64_t before) const { return lockedChanges ? before + 1 : before; }
    static uint64_t surelyFrom(uint64_t after) { return after + 1; }
};

class HandlerLog {
public:
    /// A new registration with tick interval `interval` (0 behaves like 1),
    /// about to be made; `before` is the pass counter read just before. Must
    /// come before the registration, since the tick thread may call at once.
    void begin(const char* name, uint32_t interval, Applies applies, uint64_t before);
    /// The registration call has returned; `after` is the counter read then.
    void registered(uint64_t after);
    /// The registration ended between these readings (both equal when the
    /// handler unregistered itself in that pass).
    void end(uint64_t before, uint64_t after);

    void enabledChange(bool enabled, uint64_t before, uint64_t after);
    void membershipChange(uint32_t group, bool member, uint64_t before, uint64_t after);
    void groupStateChange(uint32_t group, bool disabled, uint64_t before, uint64_t after);
    /// A group's state as it stood before this registration, with its last
    /// change (whose application may overlap the registration).
    void groupHistory(uint32_t group, bool before, bool now, uint64_t changedBefore, uint64_t changedAfter);
    void phaseChange(uint64_t before, uint64_t after);

    /// From the tick function, on the tick thread.
    void called(uint64_t pass) { calls.push_back(pass); }
    size_t callCount() const { return calls.size(); }

    /// Checks the calls; reports each violation. Returns the calls checked.
    size_t verify() const;

private:
    Tri due(uint64_t pass) const;
    bool hasCallAt(uint64_t pass) const;

    std::string name;
    uint32_t period = 1;
    Applies applies{true};
    uint64_t firstPossible = 0;
    uint64_t firstSure = 0;
    uint64_t lastSure = 0;
    uint64_t lastPossible = 0;
    Timeline enabled;
    Timeline member[2];
    Timeline disabled[2];
    Timeline phase;
    std::vector<uint64_t> calls;
};

}  // namespace soak
