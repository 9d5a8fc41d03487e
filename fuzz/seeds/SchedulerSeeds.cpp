// Seed scenarios of the CTickScheduler target.
#include "SchedulerOps.h"
#include "SeedInputs.h"
#include "TickModuleIdentity.h"

namespace zyn_fuzz {
namespace {

using zyn_fuzz::sched::Op;
using zyn_fuzz::sched::OpKind;
using zyn_fuzz::sched::ThrowKind;
using S = Scenario<Op>;
using TickModule::Phase::Configure;
using TickModule::Phase::Idle;
using TickModule::Phase::ShutDown;
using TickModule::Phase::StartTicks;

constexpr uint32_t kNotAPhase = 12;

Op reg(uint8_t client, uint32_t interval, NameRecipe name, uint8_t variant = 0) {
    Op op = S::registration(client, std::move(name), variant);
    op.a = interval;
    return op;
}

Op initialize(int32_t priority, uint32_t module = 0, uint32_t callback = 0, uint32_t interface = 0) {
    Op op = S::initialize(module, callback, interface);
    op.a = static_cast<uint32_t>(priority);
    return op;
}

Op armThrow(uint8_t client, ThrowKind kind, std::string what = std::string()) {
    Op op = S::plain(OpKind::ArmThrow);
    op.client = client;
    op.variant = static_cast<uint8_t>(kind);
    op.text = std::move(what);
    return op;
}

Op phase(uint32_t code) { return S::withValue(OpKind::Phase, code); }
Op level(uint32_t maxLevel) { return S::withValue(OpKind::TraceLevel, maxLevel); }
Op onSlot(OpKind kind, uint8_t slot, uint32_t value = 0) { return S::onSlot(kind, slot, value); }

S intervals() {
    return S()
        .then(reg(0, 1, spelledName("one")))
        .then(reg(1, 2, spelledName("two")))
        .then(reg(2, 3, spelledName("three")))
        .ticks(7);
}

S prioritiesAndListing() {
    return S()
        .then(reg(0, 5, spelledName("A")))
        .then(reg(1, 5, spelledName("B")))
        .then(reg(2, 5, spelledName("C")))
        .then(onSlot(OpKind::SetPriority, 0, 7))
        .then(onSlot(OpKind::SetPriority, 2, 5))
        .then(onSlot(OpKind::SetPriority, 2, 6))
        .then(onSlot(OpKind::SetPriority, 1, 0xFFFFFFFEu))
        .then(initialize(1))
        .then(phase(Idle))
        .then(phase(StartTicks))
        .ticks(3);
}

S changesFromATick() {
    return S()
        .then(reg(0, 1, spelledName("first")))
        .then(reg(1, 1, spelledName("second")))
        .then(reg(2, 2, spelledName("third")))
        .then(S::arm(0, onSlot(OpKind::Unregister, 1)))
        .then(S::arm(0, reg(3, 1, spelledName("late"))))
        .then(S::arm(2, onSlot(OpKind::SetPriority, 0, 9)))
        .then(S::arm(2, onSlot(OpKind::Unregister, 2)))
        .ticks(3);
}

S exceptions() {
    return S()
        .then(reg(0, 1, spelledName("runtime")))
        .then(reg(1, 1, spelledName("logic")))
        .then(reg(2, 1, spelledName("int")))
        .then(armThrow(0, ThrowKind::RuntimeError, "bad state"))
        .then(armThrow(1, ThrowKind::LogicError, "wrong"))
        .then(armThrow(2, ThrowKind::Int))
        .ticks(2);
}

S groups() {
    return S()
        .then(reg(0, 1, spelledName("g0")))
        .then(reg(1, 2, spelledName("g1")))
        .then(reg(2, 1, spelledName("both")))
        .then(onSlot(OpKind::AddGroup, 0, 0))
        .then(onSlot(OpKind::AddGroup, 1, 1))
        .then(onSlot(OpKind::AddGroup, 2, 0))
        .then(onSlot(OpKind::AddGroup, 2, 1))
        .then(onSlot(OpKind::AddGroup, 2, UINT32_MAX))
        .then(S::withValue(OpKind::DisableGroup, 1))
        .ticks(3)
        .then(S::arm(0, S::withValue(OpKind::DisableGroup, 0)))
        .ticks(2)
        .then(S::withValue(OpKind::EnableGroup, 0))
        .then(S::withValue(OpKind::EnableGroup, 1))
        .then(S::withValue(OpKind::DisableGroup, 0x80000000u))
        .ticks(2);
}

S freezeAndOffsets() {
    return S()
        .then(reg(0, 5, spelledName("offset")))
        .then(reg(1, UINT32_MAX, spelledName("rare")))
        .then(onSlot(OpKind::SetStartOffset, 0, 3))
        .then(onSlot(OpKind::SetStartOffset, 0, 5))
        .then(onSlot(OpKind::SetStartOffset, 1, 0xFFFFFFFEu))
        .ticks(2)
        .then(S::arm(1, S::plain(OpKind::Freeze)))
        .ticks(3)
        .then(OpKind::Unfreeze)
        .ticks(4);
}

S lifecycle() {
    return S()
        .then(phase(StartTicks))
        .then(initialize(2, 32773))
        .then(initialize(2, 0, 32768))
        .then(initialize(2, 0, 0, 32768))
        .then(initialize(3, 0x80000000u, 0xFFFFFFFFu, 4097))
        .then(initialize(0))
        .then(reg(0, 2, spelledName("kept")))
        .then(phase(kNotAPhase))
        .then(phase(ShutDown))
        .then(onSlot(OpKind::CopyForeignHandle, 0))
        .then(onSlot(OpKind::Enable, 1))
        .then(onSlot(OpKind::SetPriority, 1, 1))
        .then(onSlot(OpKind::Unregister, 0))
        .then(onSlot(OpKind::Unregister, 1))
        .then(onSlot(OpKind::Unregister, 1))
        .then(OpKind::LoadForeignRecord)
        .then(onSlot(OpKind::SetStartOffset, 0, 6))
        .then(phase(Idle))
        .then(initialize(-1))
        .ticks(1);
}

S names() {
    return S()
        .then(reg(0, 1, generatedName(4096, 0x80)))
        .then(reg(1, 1, generatedName(40, 0x01, 0)))
        .then(reg(2, 1, generatedName(300, 0xF0, 3)))
        .then(reg(3, 1, nearLimitName(1)))
        .then(reg(4, 1, nearLimitName(2)))
        .then(reg(5, 1, spelledName("")))
        .then(reg(6, 1, spelledName(std::string("nul\0inside", 10))))
        .then(reg(7, 0, spelledName("x"), kNullHandleVariable | kNullReceiver | kNullName))
        .then(reg(7, 0, spelledName("x"), kNullReceiver))
        .then(reg(7, 0, spelledName("x"), kNullName))
        .then(initialize(0))
        .then(phase(StartTicks))
        .then(armThrow(0, ThrowKind::RangeError, "\xff\xfe"))
        .ticks(1);
}

S traceLevels() {
    return S()
        .then(level(0))
        .then(reg(0, 1, spelledName("quiet")))
        .then(onSlot(OpKind::Unregister, kNullSlot))
        .then(level(2))
        .then(onSlot(OpKind::Unregister, 1))
        .then(level(5))
        .then(onSlot(OpKind::WriteEnabled, 0, 2))
        .ticks(1)
        .then(onSlot(OpKind::WriteEnabled, 0, 0))
        .ticks(1)
        .then(level(7))
        .then(onSlot(OpKind::Unregister, 0));
}

// Phase 11 configures the oscillator; phase 14 then starts its thread, which
// the target parks. A second start is refused while it runs; phase 16 stops
// it, and a new start needs no new phase 11.
S oscillatorStart() {
    return S()
        .then(initialize(1))
        .then(reg(0, 1, spelledName("ticking")))
        .then(phase(StartTicks))
        .then(OpKind::Freeze)
        .then(phase(Configure))
        .then(phase(StartTicks))
        .ticks(2)
        .then(phase(StartTicks))
        .then(phase(ShutDown))
        .then(initialize(4))
        .then(phase(StartTicks))
        .ticks(1)
        .then(OpKind::Uninitialize);
}

// An input that ends with the thread running: the next input starts from a
// stopped, unconfigured oscillator all the same.
S oscillatorLeftRunning() {
    return S()
        .then(initialize(0))
        .then(phase(Configure))
        .then(phase(StartTicks))
        .then(reg(0, 1, spelledName("late")))
        .ticks(2);
}

SeedInput encode(std::string name, const S& scenario) {
    return encodeScenario(std::move(name), scenario, &zyn_fuzz::sched::encodeOp, &zyn_fuzz::sched::decodeOp,
                          &zyn_fuzz::sched::describe);
}

}  // namespace

std::vector<SeedInput> schedulerSeeds() {
    return {encode("intervals", intervals()),
            encode("priorities-and-listing", prioritiesAndListing()),
            encode("changes-from-a-tick", changesFromATick()),
            encode("exceptions", exceptions()),
            encode("groups", groups()),
            encode("freeze-and-offsets", freezeAndOffsets()),
            encode("lifecycle", lifecycle()),
            encode("names", names()),
            encode("trace-levels", traceLevels()),
            encode("oscillator-start", oscillatorStart()),
            encode("oscillator-left-running", oscillatorLeftRunning())};
}

}  // namespace zyn_fuzz
