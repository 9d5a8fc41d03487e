// Fuzz target for CTickScheduler: decodes the input into operations, runs
// each on the library and on the reference model, and aborts on the first
// difference in a result, a trace line, a call of a tick function or the
// module's state. Ticks are driven by calling the module's tick dispatch
// directly; the oscillator thread that phase 14 starts stays parked and
// never ticks (ParkedOscillator.h), so every run is deterministic.
#include <new>
#include <stdexcept>

#include "CTickScheduler.h"
#include "CTickSchedulerModule.h"
#include "FuzzCheck.h"
#include "ParkedOscillator.h"
#include "PlatformDouble.h"
#include "SchedulerModel.h"
#include "SchedulerOps.h"
#include "SessionBase.h"
#include "TickModuleIdentity.h"

namespace zyn_fuzz::sched {
namespace {

// A started oscillator thread parks at once; only a stuck thread takes this.
constexpr unsigned kParkingSeconds = 10;

const zyn_fuzz::ModuleUnderTest kModule{
    &CTickScheduler_UnregisterTickHandler,
    &CTickScheduler_EnableTickHandler,
    &CTickScheduler_DisableTickHandler,
    &CTickScheduler_AddGroup,
    &CTickScheduler_RemoveGroup,
    &CTickScheduler_EnableTickGroup,
    &CTickScheduler_DisableTickGroup,
    &CTickScheduler_Uninitialize,
    &CTickScheduler_OnPhaseActivation,
    &CTickScheduler_OnTick,
    &tickScheduler,
    TickModule::SchedulerModuleId,
    "CTickScheduler",
    "CCTickScheduler_OnPhaseActivation",
    "ITickScheduler",
    {TickModule::Phase::Configure, TickModule::Phase::Idle, TickModule::Phase::ShutDown, TickModule::Phase::StartTicks},
    &phaseCallbackContext};

/// What a client's tick function throws once it has run what was armed.
struct PendingThrow {
    ThrowKind kind = ThrowKind::None;
    std::string what;
};

class Session : public zyn_fuzz::SessionBase<Op, SchedulerModel> {
public:
    Session() : SessionBase(kModule, &zyn_fuzz::sched::decodeOp, &zyn_fuzz::sched::describe) {}

private:
    // No handler and not frozen, and an oscillator as the library had it at
    // load.
    void prepareLibrary() override {
        CTickScheduler_Unfreeze();
        // An oscillator that an earlier phase 11 configured is made new, as the
        // library left it at load: the oscillator has no way back to that state.
        TickOscillator& oscillator = tickScheduler.tickOscillator;
        ParkedOscillator::restoreReceiver(oscillator);
        if (oscillator.isInitialized()) {
            oscillator.~TickOscillator();
            new (&oscillator) TickOscillator();
        }
    }

    void cleanUp() override {
        for (size_t slot = 0; slot < kSlots; ++slot) {
            const uint32_t id = model.slots()[slot];
            if (id != kNoRecord && model.records()[id].place == Place::Listed) {
                check(CTickScheduler_UnregisterTickHandler(&slots[slot]) == 0, "clean-up could not unregister",
                      std::string());
            }
        }
        // Records that Uninitialize left out of the list are the client's to
        // free, with the array form that matches their allocation.
        for (uint32_t id = 0; id < model.records().size(); ++id) {
            if (model.records()[id].place == Place::Dropped) {
                delete[] addressOf[id];
            }
        }
        check(tickScheduler.tickHandlers.empty(), "clean-up left handlers in the list", std::string());
        // No oscillator thread outlives its input.
        (void)tickScheduler.tickOscillator.stop();
        ParkedOscillator::restoreReceiver(tickScheduler.tickOscillator);
    }

    void afterCall(const Op& op, uint32_t result, const std::string& name) override {
        if (op.kind == OpKind::Phase && op.a == TickModule::Phase::StartTicks && result == 0) {
            check(ParkedOscillator::waitUntilParked(kParkingSeconds), "the oscillator thread did not start", name);
        }
        ParkedOscillator::restoreReceiver(tickScheduler.tickOscillator);
    }

    uint32_t callOwn(const Op& op, const Outcome& outcome) override {
        switch (op.kind) {
            case OpKind::Register: {
                const RegisterArguments call = registerArguments(op, outcome);
                return CTickScheduler_RegisterTickHandler(call.variable, call.receiverPointer(), op.a, call.name);
            }
            case OpKind::SetPriority:
                return CTickScheduler_SetTickPriority(handleIn(op.slot), static_cast<int32_t>(op.a));
            case OpKind::SetStartOffset:
                return CTickScheduler_SetStartOffset(handleIn(op.slot), op.a);
            case OpKind::Freeze:
                return CTickScheduler_Freeze();
            case OpKind::Unfreeze:
                return CTickScheduler_Unfreeze();
            case OpKind::CopyForeignHandle:
                slots[static_cast<size_t>(outcome.slot)] = slots[op.slot];
                return 0;
            case OpKind::ArmThrow:
                throws[op.client] = PendingThrow{static_cast<ThrowKind>(op.variant), op.text};
                return 0;
            default:
                zyn_fuzz::fail("an operation the scheduler target does not know");
        }
    }

    uint32_t callInitialize(const Op& op) override {
        const auto priority = static_cast<ETickPriority>(static_cast<int32_t>(op.a));
        return CTickScheduler_Initialize(&priority);
    }

    void leaveTickFunction(uint32_t client) override {
        const PendingThrow pending = throws[client];
        throws[client] = PendingThrow{};
        if (pending.kind == ThrowKind::None) {
            return;
        }
        model.noteThrow(pending.kind, pending.what);
        switch (pending.kind) {
            case ThrowKind::RuntimeError:
                throw std::runtime_error(pending.what);
            case ThrowKind::RangeError:
                throw std::range_error(pending.what);
            case ThrowKind::LogicError:
                throw std::logic_error(pending.what);
            case ThrowKind::Int:
            case ThrowKind::None:
                throw 42;
        }
    }

    void compareOwnState(const std::string& where) override {
        check(tickScheduler.tickOscillator.isFrozen() == model.frozen(), "frozen flag", where);
        check(tickScheduler.inTick == walk().inTick(), "pass marker", where);
        const TickOscillator& oscillator = tickScheduler.tickOscillator;
        check(oscillator.isRunning() == model.oscillatorStarted(), "oscillator thread", where);
        check(oscillator.isInitialized() == model.oscillatorReady(), "oscillator configuration", where);
        if (model.oscillatorReady()) {
            const ITickReceiver* const receiver = oscillator.getReceiver();
            check(oscillator.getDelay() == TICK_DELAY_6MS && receiver != nullptr &&
                      receiver->onTick == &CTickScheduler_OnTick && receiver->context == &tickScheduler,
                  "oscillator configuration", where);
        }
        if (model.tickPriority()) {
            checkEqual(static_cast<int32_t>(tickScheduler.tickPriority), *model.tickPriority(), "tick priority", where);
        }
    }

    std::vector<STickHandler*> listedInLibrary() const override { return tickScheduler.tickHandlers; }
    zyn_fuzz::ModuleFlags moduleFlags() const override {
        return {tickScheduler.disabledGroupMask.load(), tickScheduler.initialized.load()};
    }

    std::array<PendingThrow, kClients> throws;
};

}  // namespace
}  // namespace zyn_fuzz::sched

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return zyn_fuzz::runOneInput<zyn_fuzz::sched::Session>(data, size);
}
