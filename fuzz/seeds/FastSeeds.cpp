// Seed scenarios of the CTickSchedulerFast target.
#include "FastOps.h"
#include "SeedInputs.h"
#include "TickModuleIdentity.h"

namespace zyn_fuzz {
namespace {

using zyn_fuzz::fast::Op;
using zyn_fuzz::fast::OpKind;
using F = Scenario<Op>;
using TickModule::Phase::Configure;
using TickModule::Phase::Idle;
using TickModule::Phase::ShutDown;
using TickModule::Phase::StartTicks;

constexpr uint32_t kNotAPhase = 12;

Op reg(uint8_t client, NameRecipe name, uint8_t variant = 0) {
    return F::registration(client, std::move(name), variant);
}
Op phase(uint32_t code) { return F::withValue(OpKind::Phase, code); }
Op onSlot(OpKind kind, uint8_t slot, uint32_t value = 0) { return F::onSlot(kind, slot, value); }
Op removeFromTick(uint8_t slot) { return F::onSlot(OpKind::UnregisterFromOnTick, slot); }

F dispatch() {
    return F()
        .then(F::initialize())
        .then(phase(Configure))
        .then(reg(0, spelledName("A")))
        .then(reg(1, spelledName("B")))
        .then(reg(2, spelledName("C")))
        .ticks(2)
        .then(onSlot(OpKind::Disable, 1))
        .ticks(1)
        .then(onSlot(OpKind::WriteEnabled, 1, 2))
        .ticks(1)
        .then(onSlot(OpKind::Enable, 1))
        .ticks(1);
}

F removeFromATick() {
    return F()
        .then(reg(0, spelledName("self")))
        .then(reg(1, spelledName("next")))
        .then(reg(2, spelledName("last")))
        .then(F::arm(0, removeFromTick(0)))
        .then(F::arm(2, removeFromTick(1)))
        .ticks(3)
        .then(F::arm(2, removeFromTick(2)))
        .then(F::arm(2, removeFromTick(2)))
        .ticks(2);
}

// Removing the handler the walk comes to next: the next one, the next that
// is also the last, itself and then the next, the next and then itself.
F removeAheadFromATick() {
    return F()
        .then(reg(0, spelledName("first")))
        .then(reg(1, spelledName("second")))
        .then(reg(2, spelledName("third")))
        .then(reg(3, spelledName("fourth")))
        .then(F::arm(0, removeFromTick(1)))
        .then(F::arm(2, removeFromTick(3)))
        .ticks(2)
        .then(reg(1, spelledName("again")))
        .then(reg(3, spelledName("last")))
        .then(F::arm(2, removeFromTick(2)))
        .then(F::arm(2, removeFromTick(1)))
        .ticks(2)
        .then(F::arm(0, removeFromTick(3)))
        .then(F::arm(0, removeFromTick(0)))
        .ticks(2);
}

F groups() {
    return F()
        .then(reg(0, spelledName("g0")))
        .then(reg(1, spelledName("g1")))
        .then(reg(2, spelledName("both")))
        .then(reg(3, spelledName("none")))
        .then(onSlot(OpKind::AddGroup, 0, 0))
        .then(onSlot(OpKind::AddGroup, 1, 1))
        .then(onSlot(OpKind::AddGroup, 2, 0))
        .then(onSlot(OpKind::AddGroup, 2, 1))
        .then(onSlot(OpKind::AddGroup, kNullSlot, 5))
        .then(onSlot(OpKind::RemoveGroup, kNullSlot, 0))
        .then(F::withValue(OpKind::DisableGroup, 1))
        .ticks(1)
        .then(F::arm(3, F::withValue(OpKind::DisableGroup, 0)))
        .ticks(2)
        .then(F::withValue(OpKind::EnableGroup, 0))
        .then(F::withValue(OpKind::EnableGroup, UINT32_MAX))
        .then(F::withValue(OpKind::EnableGroup, 1))
        .ticks(1);
}

F listFaults() {
    return F()
        .then(reg(0, spelledName("one")))
        .then(reg(1, spelledName("two")))
        .then(F::withValue(OpKind::ScriptGetNextNull, 2))
        .ticks(2)
        .then(F::withValue(OpKind::ScriptRemoveResult, 0xFFFFFFFFu))
        .then(onSlot(OpKind::Unregister, 5))
        .then(OpKind::LoadForeignRecord)
        .then(onSlot(OpKind::Unregister, 2))
        .then(onSlot(OpKind::Unregister, 0))
        .then(onSlot(OpKind::Unregister, 0))
        .then(onSlot(OpKind::Unregister, kNullSlot));
}

F lifecycle() {
    return F()
        .then(phase(Configure))
        .then(F::initialize(32773))
        .then(F::initialize(0, 0xFFFFFFFFu))
        .then(F::initialize(0, 0, 32768))
        .then(F::initialize(0x80000000u, 4097))
        .then(F::initialize())
        .then(phase(Idle))
        .then(phase(StartTicks))
        .then(phase(kNotAPhase))
        .then(phase(Configure))
        .then(phase(ShutDown))
        .then(phase(Configure))
        .then(reg(0, generatedName(4096, 0x90)))
        .then(reg(1, nearLimitName(2)))
        .then(reg(2, spelledName("x"), kNullHandleVariable))
        .then(reg(2, spelledName("x"), kNullName))
        .ticks(1)
        .then(OpKind::Uninitialize)
        .ticks(1);
}

SeedInput encode(std::string name, const F& scenario) {
    return encodeScenario(std::move(name), scenario, &zyn_fuzz::fast::encodeOp, &zyn_fuzz::fast::decodeOp,
                          &zyn_fuzz::fast::describe);
}

}  // namespace

std::vector<SeedInput> fastSeeds() {
    return {encode("dispatch", dispatch()),
            encode("remove-from-a-tick", removeFromATick()),
            encode("remove-ahead-from-a-tick", removeAheadFromATick()),
            encode("groups", groups()),
            encode("list-faults", listFaults()),
            encode("lifecycle", lifecycle())};
}

}  // namespace zyn_fuzz
