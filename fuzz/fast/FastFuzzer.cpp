// Fuzz target for CTickSchedulerFast: decodes the input into operations, runs
// each on the library and on the reference model, and aborts on the first
// difference in a result, a trace line, a call of a tick function or the
// module's state. Ticks are driven by calling the module's tick dispatch
// directly; the oscillator thread is never started.
#include "CTickSchedulerFast.h"
#include "CTickSchedulerFastModule.h"
#include "FastModel.h"
#include "FastOps.h"
#include "FuzzCheck.h"
#include "PlatformDouble.h"
#include "SessionBase.h"
#include "TickModuleIdentity.h"

namespace zyn_fuzz::fast {
namespace {

const zyn_fuzz::ModuleUnderTest kModule{
    &CTickSchedulerFast_UnregisterTickHandler,
    &CTickSchedulerFast_EnableTickHandler,
    &CTickSchedulerFast_DisableTickHandler,
    &CTickSchedulerFast_AddGroup,
    &CTickSchedulerFast_RemoveGroup,
    &CTickSchedulerFast_EnableTickGroup,
    &CTickSchedulerFast_DisableTickGroup,
    &CTickSchedulerFast_Uninitialize,
    &CTickSchedulerFast_OnPhaseActivation,
    &CTickSchedulerFast_OnTick,
    &tickSchedulerFastModule,
    TickModule::FastSchedulerModuleId,
    "CTickSchedulerFast",
    "CCTickSchedulerFast_OnPhaseActivation",
    "ITickSchedulerFast",
    {TickModule::Phase::Configure, TickModule::Phase::Idle, TickModule::Phase::ShutDown},
    nullptr};

class Session : public zyn_fuzz::SessionBase<Op, FastModel> {
public:
    Session() : SessionBase(kModule, &zyn_fuzz::fast::decodeOp, &zyn_fuzz::fast::describe) {}

private:
    // An empty list, and an oscillator that phase 11 has not configured.
    void prepareLibrary() override {
        TickOscillator& oscillator = tickSchedulerFastModule.tickOscillator;
        if (oscillator.isInitialized()) {
            oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_LOWEST);
            oscillator.registerOnTick(nullptr);
        }
    }

    void cleanUp() override {
        for (STickHandler* handler : listedInLibrary()) {
            check(CTickSchedulerFast_UnregisterTickHandler(&handler) == 0, "clean-up could not unregister",
                  std::string());
        }
    }

    std::vector<STickHandler*> listedInLibrary() const override {
        std::vector<STickHandler*> handlers;
        for (void* element : platform_double::listElements(&tickSchedulerFastModule.handlerList)) {
            handlers.push_back(static_cast<STickHandler*>(element));
        }
        return handlers;
    }

    uint32_t callOwn(const Op& op, const Outcome& outcome) override {
        switch (op.kind) {
            case OpKind::Register: {
                const RegisterArguments call = registerArguments(op, outcome);
                return CTickSchedulerFast_RegisterTickHandler(call.variable, call.receiverPointer(), call.name);
            }
            case OpKind::UnregisterFromOnTick:
                return CTickSchedulerFast_UnregisterTickHandlerFromOnTick(variableIn(op.slot));
            case OpKind::ScriptRemoveResult:
                platform_double::scriptListRemoveMissingResult(op.a);
                return 0;
            case OpKind::ScriptGetNextNull:
                platform_double::scriptListGetNextNullAt(op.a);
                return 0;
            default:
                zyn_fuzz::fail("an operation the fast target does not know");
        }
    }

    void compareOwnState(const std::string& where) override {
        const TickOscillator& oscillator = tickSchedulerFastModule.tickOscillator;
        check(!oscillator.isRunning(), "the module started its oscillator", where);
        if (model.oscillatorConfigured()) {
            check(oscillator.isInitialized() && oscillator.getDelay() == TICK_DELAY_1MS &&
                      oscillator.getPriority() == 98 && oscillator.getReceiver() != nullptr &&
                      oscillator.getReceiver()->onTick == &CTickSchedulerFast_OnTick &&
                      oscillator.getReceiver()->context == &tickSchedulerFastModule,
                  "oscillator configuration", where);
        }
    }

    // Outside a tick the module must never leave its mutex held.
    void checkBetweenTicks(const std::string& where) override {
        pthread_mutex_t* mutex = &tickSchedulerFastModule.tickMutex;
        check(pthread_mutex_trylock(mutex) == 0, "the module's mutex is held", where);
        pthread_mutex_unlock(mutex);
    }

    uint32_t callInitialize(const Op& /*op*/) override { return CTickSchedulerFast_Initialize(); }
    zyn_fuzz::ModuleFlags moduleFlags() const override {
        return {tickSchedulerFastModule.disabledGroupMask.load(), tickSchedulerFastModule.initialized};
    }
};

}  // namespace
}  // namespace zyn_fuzz::fast

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return zyn_fuzz::runOneInput<zyn_fuzz::fast::Session>(data, size);
}
