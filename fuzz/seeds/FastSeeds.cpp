// Seed scenarios of the CTickSchedulerFast target.
#include "FastOps.h"
#include "SeedInputs.h"

namespace zyn_fuzz {
namespace {

using fast::Op;
using fast::OpKind;
using B = OpBuilder<Op>;

Op reg(uint8_t client, const char* name) { return B::registration(client, spelledName(name)); }
Op reg(uint8_t client, NameRecipe name, uint8_t variant = 0) {
    return B::registration(client, std::move(name), variant);
}
Op phase(uint32_t code) { return B::withValue(OpKind::Phase, code); }
Op onSlot(OpKind kind, uint8_t slot, uint32_t value = 0) { return B::onSlot(kind, slot, value); }
/// The unlocked unregistration, armed on `client` for its next tick.
Op removeFromTick(uint8_t client, uint8_t slot) { return B::arm(client, onSlot(OpKind::UnregisterFromOnTick, slot)); }
Op script(OpKind kind, uint32_t value) { return B::withValue(kind, value); }

const std::vector<Scenario<Op>> kScenarios = {
    {"dispatch",
     {B::initialize(), phase(Configure), reg(0, "A"), reg(1, "B"), reg(2, "C"), Step<Op>(OpKind::Tick, 2),
      onSlot(OpKind::Disable, 1), OpKind::Tick, onSlot(OpKind::WriteEnabled, 1, 2), OpKind::Tick,
      onSlot(OpKind::Enable, 1), OpKind::Tick}},
    {"remove-from-a-tick",
     {reg(0, "self"), reg(1, "next"), reg(2, "last"), removeFromTick(0, 0), removeFromTick(2, 1),
      Step<Op>(OpKind::Tick, 3), Step<Op>(removeFromTick(2, 2), 2), Step<Op>(OpKind::Tick, 2)}},
    // Removing the handler the walk comes to next: the next one, the next
    // that is also the last, itself and then the next, the next and then
    // itself.
    {"remove-ahead-from-a-tick",
     {reg(0, "first"), reg(1, "second"), reg(2, "third"), reg(3, "fourth"), removeFromTick(0, 1), removeFromTick(2, 3),
      Step<Op>(OpKind::Tick, 2), reg(1, "again"), reg(3, "last"), removeFromTick(2, 2), removeFromTick(2, 1),
      Step<Op>(OpKind::Tick, 2), removeFromTick(0, 3), removeFromTick(0, 0), Step<Op>(OpKind::Tick, 2)}},
    {"groups",
     {reg(0, "g0"), reg(1, "g1"), reg(2, "both"), reg(3, "none"), onSlot(OpKind::AddGroup, 0, 0),
      onSlot(OpKind::AddGroup, 1, 1), onSlot(OpKind::AddGroup, 2, 0), onSlot(OpKind::AddGroup, 2, 1),
      onSlot(OpKind::AddGroup, kNullSlot, 5), onSlot(OpKind::RemoveGroup, kNullSlot, 0),
      B::withValue(OpKind::DisableGroup, 1), OpKind::Tick, B::arm(3, B::withValue(OpKind::DisableGroup, 0)),
      Step<Op>(OpKind::Tick, 2), B::withValue(OpKind::EnableGroup, 0), B::withValue(OpKind::EnableGroup, UINT32_MAX),
      B::withValue(OpKind::EnableGroup, 1), OpKind::Tick}},
    {"list-faults",
     {reg(0, "one"), reg(1, "two"), script(OpKind::ScriptGetNextNull, 2), Step<Op>(OpKind::Tick, 2),
      script(OpKind::ScriptRemoveResult, 0xFFFFFFFFu), onSlot(OpKind::Unregister, 5), OpKind::LoadForeignRecord,
      onSlot(OpKind::Unregister, 2), Step<Op>(onSlot(OpKind::Unregister, 0), 2),
      onSlot(OpKind::Unregister, kNullSlot)}},
    {"lifecycle",
     {phase(Configure), B::initialize(32773), B::initialize(0, 0xFFFFFFFFu), B::initialize(0, 0, 32768),
      B::initialize(0x80000000u, 4097), B::initialize(), phase(Idle), phase(StartTicks), phase(kNotAPhase),
      phase(Configure), phase(ShutDown), phase(Configure), reg(0, generatedName(4096, 0x90)), reg(1, nearLimitName(2)),
      reg(2, spelledName("x"), kNullHandleVariable), reg(2, spelledName("x"), kNullName), OpKind::Tick,
      OpKind::Uninitialize, OpKind::Tick}},
};

}  // namespace

std::vector<SeedInput> fastSeeds() {
    return encodeScenarios(kScenarios, &fast::encodeOp, &fast::decodeOp, &fast::describe);
}

}  // namespace zyn_fuzz
