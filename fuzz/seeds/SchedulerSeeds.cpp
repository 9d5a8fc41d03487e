// Seed scenarios of the CTickScheduler target.
#include "SchedulerOps.h"
#include "SeedInputs.h"

namespace zyn_fuzz {
namespace {

using sched::Op;
using sched::OpKind;
using sched::ThrowKind;
using B = OpBuilder<Op>;

Op reg(uint8_t client, uint32_t interval, NameRecipe name, uint8_t variant = 0) {
    Op op = B::registration(client, std::move(name), variant);
    op.a = interval;
    return op;
}
Op reg(uint8_t client, uint32_t interval, const char* name) { return reg(client, interval, spelledName(name)); }

Op initialize(int32_t priority, uint32_t module = 0, uint32_t callback = 0, uint32_t interface = 0) {
    Op op = B::initialize(module, callback, interface);
    op.a = static_cast<uint32_t>(priority);
    return op;
}

Op armThrow(uint8_t client, ThrowKind kind, std::string what = std::string()) {
    Op op = B::plain(OpKind::ArmThrow);
    op.client = client;
    op.variant = static_cast<uint8_t>(kind);
    op.text = std::move(what);
    return op;
}

Op phase(uint32_t code) { return B::withValue(OpKind::Phase, code); }
Op level(uint32_t maxLevel) { return B::withValue(OpKind::TraceLevel, maxLevel); }
Op group(OpKind kind, uint32_t groupId) { return B::withValue(kind, groupId); }
Op onSlot(OpKind kind, uint8_t slot, uint32_t value = 0) { return B::onSlot(kind, slot, value); }
Step<Op> ticks(int count) { return Step<Op>(OpKind::Tick, count); }

const std::vector<Scenario<Op>> kScenarios = {
    {"intervals", {reg(0, 1, "one"), reg(1, 2, "two"), reg(2, 3, "three"), ticks(7)}},
    {"priorities-and-listing",
     {reg(0, 5, "A"), reg(1, 5, "B"), reg(2, 5, "C"), onSlot(OpKind::SetPriority, 0, 7),
      onSlot(OpKind::SetPriority, 2, 5), onSlot(OpKind::SetPriority, 2, 6), onSlot(OpKind::SetPriority, 1, 0xFFFFFFFEu),
      initialize(1), phase(Idle), phase(StartTicks), ticks(3)}},
    {"changes-from-a-tick",
     {reg(0, 1, "first"), reg(1, 1, "second"), reg(2, 2, "third"), B::arm(0, onSlot(OpKind::Unregister, 1)),
      B::arm(0, reg(3, 1, "late")), B::arm(2, onSlot(OpKind::SetPriority, 0, 9)),
      B::arm(2, onSlot(OpKind::Unregister, 2)), ticks(3)}},
    {"exceptions",
     {reg(0, 1, "runtime"), reg(1, 1, "logic"), reg(2, 1, "int"), armThrow(0, ThrowKind::RuntimeError, "bad state"),
      armThrow(1, ThrowKind::LogicError, "wrong"), armThrow(2, ThrowKind::Int), ticks(2)}},
    {"groups",
     {reg(0, 1, "g0"), reg(1, 2, "g1"), reg(2, 1, "both"), onSlot(OpKind::AddGroup, 0, 0),
      onSlot(OpKind::AddGroup, 1, 1), onSlot(OpKind::AddGroup, 2, 0), onSlot(OpKind::AddGroup, 2, 1),
      onSlot(OpKind::AddGroup, 2, UINT32_MAX), group(OpKind::DisableGroup, 1), ticks(3),
      B::arm(0, group(OpKind::DisableGroup, 0)), ticks(2), group(OpKind::EnableGroup, 0), group(OpKind::EnableGroup, 1),
      group(OpKind::DisableGroup, 0x80000000u), ticks(2)}},
    {"freeze-and-offsets",
     {reg(0, 5, "offset"), reg(1, UINT32_MAX, "rare"), onSlot(OpKind::SetStartOffset, 0, 3),
      onSlot(OpKind::SetStartOffset, 0, 5), onSlot(OpKind::SetStartOffset, 1, 0xFFFFFFFEu), ticks(2),
      B::arm(1, B::plain(OpKind::Freeze)), ticks(3), OpKind::Unfreeze, ticks(4)}},
    {"lifecycle",
     {phase(StartTicks), initialize(2, 32773), initialize(2, 0, 32768), initialize(2, 0, 0, 32768),
      initialize(3, 0x80000000u, 0xFFFFFFFFu, 4097), initialize(0), reg(0, 2, "kept"), phase(kNotAPhase),
      phase(ShutDown), onSlot(OpKind::CopyForeignHandle, 0), onSlot(OpKind::Enable, 1),
      onSlot(OpKind::SetPriority, 1, 1), onSlot(OpKind::Unregister, 0), Step<Op>(onSlot(OpKind::Unregister, 1), 2),
      OpKind::LoadForeignRecord, onSlot(OpKind::SetStartOffset, 0, 6), phase(Idle), initialize(-1), OpKind::Tick}},
    {"names",
     {reg(0, 1, generatedName(4096, 0x80)), reg(1, 1, generatedName(40, 0x01, 0)),
      reg(2, 1, generatedName(300, 0xF0, 3)), reg(3, 1, nearLimitName(1)), reg(4, 1, nearLimitName(2)), reg(5, 1, ""),
      reg(6, 1, spelledName(std::string("nul\0inside", 10))),
      reg(7, 0, spelledName("x"), kNullHandleVariable | kNullReceiver | kNullName),
      reg(7, 0, spelledName("x"), kNullReceiver), reg(7, 0, spelledName("x"), kNullName), initialize(0),
      phase(StartTicks), armThrow(0, ThrowKind::RangeError, "\xff\xfe"), OpKind::Tick}},
    {"trace-levels",
     {level(0), reg(0, 1, "quiet"), onSlot(OpKind::Unregister, kNullSlot), level(2), onSlot(OpKind::Unregister, 1),
      level(5), onSlot(OpKind::WriteEnabled, 0, 2), OpKind::Tick, onSlot(OpKind::WriteEnabled, 0, 0), OpKind::Tick,
      level(7), onSlot(OpKind::Unregister, 0)}},
    // Phase 11 configures the oscillator; phase 14 then starts its thread,
    // which the target parks. A second start is refused while it runs; phase
    // 16 stops it, and a new start needs no new phase 11.
    {"oscillator-start",
     {initialize(1), reg(0, 1, "ticking"), phase(StartTicks), OpKind::Freeze, phase(Configure), phase(StartTicks),
      ticks(2), phase(StartTicks), phase(ShutDown), initialize(4), phase(StartTicks), OpKind::Tick,
      OpKind::Uninitialize}},
    // An input that ends with the thread running: the next input starts from
    // a stopped, unconfigured oscillator all the same.
    {"oscillator-left-running", {initialize(0), phase(Configure), phase(StartTicks), reg(0, 1, "late"), ticks(2)}},
};

}  // namespace

std::vector<SeedInput> schedulerSeeds() {
    return encodeScenarios(kScenarios, &sched::encodeOp, &sched::decodeOp, &sched::describe);
}

}  // namespace zyn_fuzz
