// Fuzz target for CTickSchedulerFast: decodes the input into operations, runs
// each on the library and on the reference model, and aborts on the first
// difference in a result, a trace line, a call of a tick function or the
// module's state. Ticks are driven by calling the module's tick dispatch
// directly; the oscillator thread is never started.
#include <cstring>

#include "CTickSchedulerFast.h"
#include "CTickSchedulerFastModule.h"
#include "FastModel.h"
#include "FastOps.h"
#include "FuzzCheck.h"
#include "FuzzNames.h"
#include "PlatformDouble.h"
#include "SessionSupport.h"
#include "TraceLedger.h"

namespace fast_fuzz {
namespace {

using zyn_fuzz::check;
using zyn_fuzz::checkEqual;
using zyn_fuzz::fail;

constexpr uint32_t kModuleId = 22001;

class Session;

struct Client {
    Session* session = nullptr;
    uint32_t index = 0;
    std::vector<Op> armed;
};

class Session {
public:
    Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void run(const uint8_t* data, size_t size);

    static void onTick(void* context);

private:
    void prepareLibrary();
    void cleanUp();
    void perform(const Op& op, bool nested);
    void tick();
    void enterTickFunction(Client& client);
    uint32_t callLibrary(const Op& op, const Outcome& outcome);
    STickHandler* handleIn(uint8_t slot) const { return slot == kNullSlot ? nullptr : slots[slot]; }
    std::vector<STickHandler*> listedInLibrary() const;
    void compareState(const std::string& where);
    void compareRecord(uint32_t id, const std::string& where);
    void comparePlatformCalls(const std::string& where);
    void checkMutexIsFree(const std::string& where);

    zyn_fuzz::TraceLedger ledger;
    FastModel model;
    std::array<STickHandler*, kSlots> slots{};
    std::vector<STickHandler*> addressOf;  // by record id; null once freed
    std::array<Client, kClients> clients;
    STickHandler foreignRecord{};
};

Session::Session() : model(ledger) {
    zyn_fuzz::bindClients(clients, this);
    const ModelRecord& foreign = model.records()[model.foreignRecord()];
    zyn_fuzz::fillForeignHandler(foreignRecord, foreign.enabled, 0, 5, 0, foreign.name, foreign.groupMask);
    addressOf.push_back(&foreignRecord);
}

void Session::onTick(void* context) {
    auto* client = static_cast<Client*>(context);
    client->session->enterTickFunction(*client);
}

void Session::run(const uint8_t* data, size_t size) {
    zyn_fuzz::OperationTrail::current().clear();
    prepareLibrary();
    zyn_fuzz::performOperations(data, size, &decodeOp, [this](const Op& op, bool nested) { perform(op, nested); });
    cleanUp();
}

// Every input starts from the same module state: uninitialised, an empty
// list, both groups enabled, an oscillator that phase 11 has not configured.
void Session::prepareLibrary() {
    platform_double::reset();
    CTickSchedulerFast_Uninitialize();
    CTickSchedulerFast_EnableTickGroup(0);
    CTickSchedulerFast_EnableTickGroup(1);
    TickOscillator& oscillator = tickSchedulerFastModule.tickOscillator;
    if (oscillator.isInitialized()) {
        oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_LOWEST);
        oscillator.registerOnTick(nullptr);
    }
    check(listedInLibrary().empty(), "an earlier input left handlers registered", std::string());
    platform_double::reset();
    ledger.discard();
}

void Session::cleanUp() {
    ledger.setLevel(0);
    for (STickHandler* handler : listedInLibrary()) {
        check(CTickSchedulerFast_UnregisterTickHandler(&handler) == 0, "clean-up could not unregister", std::string());
    }
    platform_double::reset();
    ledger.discard();
}

std::vector<STickHandler*> Session::listedInLibrary() const {
    std::vector<STickHandler*> handlers;
    for (void* element : platform_double::listElements(&tickSchedulerFastModule.handlerList)) {
        handlers.push_back(static_cast<STickHandler*>(element));
    }
    return handlers;
}

void Session::perform(const Op& op, bool nested) {
    const std::string name = describe(op);
    zyn_fuzz::noteOperation(name, nested);
    if (op.kind == OpKind::Tick) {
        tick();
        return;
    }
    const Outcome outcome = model.apply(op);
    if (outcome.skipped) {
        ledger.verify("after the skipped " + name);
        return;
    }
    const uint32_t result = callLibrary(op, outcome);
    if (outcome.hasResult) {
        checkEqual(result, outcome.result, "result of", name);
    }
    zyn_fuzz::noteNewRecord(addressOf, slots, outcome);
    if (outcome.freedRecord != kNoRecord) {
        addressOf[outcome.freedRecord] = nullptr;
    }
    ledger.verify("after " + name);
    compareState("after " + name);
    if (!nested) {
        checkMutexIsFree("after " + name);
    }
}

uint32_t Session::callLibrary(const Op& op, const Outcome& outcome) {
    switch (op.kind) {
        case OpKind::Register: {
            const ITickReceiver receiver{&clients[op.client], &Session::onTick};
            STickHandler** variable =
                (op.variant & kNullHandleVariable) != 0 ? nullptr : &slots[static_cast<size_t>(outcome.slot)];
            return CTickSchedulerFast_RegisterTickHandler(variable,
                                                          (op.variant & kNullReceiver) != 0 ? nullptr : &receiver,
                                                          (op.variant & kNullName) != 0 ? nullptr : op.text.c_str());
        }
        case OpKind::Unregister:
            return CTickSchedulerFast_UnregisterTickHandler(op.slot == kNullSlot ? nullptr : &slots[op.slot]);
        case OpKind::UnregisterFromOnTick:
            return CTickSchedulerFast_UnregisterTickHandlerFromOnTick(op.slot == kNullSlot ? nullptr : &slots[op.slot]);
        case OpKind::Enable:
            return CTickSchedulerFast_EnableTickHandler(handleIn(op.slot));
        case OpKind::Disable:
            return CTickSchedulerFast_DisableTickHandler(handleIn(op.slot));
        case OpKind::AddGroup:
            return CTickSchedulerFast_AddGroup(handleIn(op.slot), op.a);
        case OpKind::RemoveGroup:
            return CTickSchedulerFast_RemoveGroup(handleIn(op.slot), op.a);
        case OpKind::EnableGroup:
            return CTickSchedulerFast_EnableTickGroup(op.a);
        case OpKind::DisableGroup:
            return CTickSchedulerFast_DisableTickGroup(op.a);
        case OpKind::WriteEnabled:
            slots[op.slot]->enabled.store(op.a);
            return 0;
        case OpKind::LoadForeignRecord:
            slots[static_cast<size_t>(outcome.slot)] = &foreignRecord;
            return 0;
        case OpKind::ArmNested:
            clients[op.client].armed.push_back(op.nested.front());
            return 0;
        case OpKind::TraceLevel:
            return 0;
        case OpKind::ScriptRemoveResult:
            platform_double::scriptListRemoveMissingResult(op.a);
            return 0;
        case OpKind::ScriptGetNextNull:
            platform_double::scriptListGetNextNullAt(op.a);
            return 0;
        case OpKind::Initialize:
            platform_double::scriptRegisterModuleResult(op.b);
            platform_double::scriptRegisterCallbackResult(op.c);
            platform_double::scriptRegisterInterfaceResult(op.d);
            return CTickSchedulerFast_Initialize();
        case OpKind::Uninitialize:
            CTickSchedulerFast_Uninitialize();
            return 0;
        case OpKind::Phase:
            return CTickSchedulerFast_OnPhaseActivation(nullptr, op.a);
        case OpKind::Tick:
            break;
    }
    fail("a tick is not an operation for callLibrary()");
}

void Session::tick() {
    model.beginTick();
    CTickSchedulerFast_OnTick(&tickSchedulerFastModule);
    model.finishTick();
    ledger.verify("after the tick");
    compareState("after the tick");
    checkMutexIsFree("after the tick");
}

void Session::enterTickFunction(Client& client) {
    const std::string where = zyn_fuzz::expectTickFunction(model.nextCall(), model.records(), client.index, "tick");
    ledger.verify(where);
    compareState(where);
    std::vector<Op> armed;
    armed.swap(client.armed);
    for (const Op& op : armed) {
        perform(op, true);
    }
}

void Session::compareState(const std::string& where) {
    std::vector<STickHandler*> expectedList;
    for (uint32_t id : model.list()) {
        expectedList.push_back(addressOf[id]);
    }
    check(listedInLibrary() == expectedList, "handler list", where);
    for (uint32_t id = 0; id < model.records().size(); ++id) {
        if (model.records()[id].place != Place::Freed) {
            compareRecord(id, where);
        }
    }
    zyn_fuzz::checkHandleVariables(slots, model.slots(), addressOf, where);
    checkEqual(tickSchedulerFastModule.disabledGroupMask.load(), model.disabledGroups(), "disabled groups", where);
    checkEqual(tickSchedulerFastModule.initialized, model.initialized() ? 1u : 0u, "initialized", where);
    const TickOscillator& oscillator = tickSchedulerFastModule.tickOscillator;
    check(!oscillator.isRunning(), "the module started its oscillator", where);
    if (model.oscillatorConfigured()) {
        check(oscillator.isInitialized() && oscillator.getDelay() == TICK_DELAY_1MS && oscillator.getPriority() == 98 &&
                  oscillator.getReceiver() != nullptr &&
                  oscillator.getReceiver()->onTick == &CTickSchedulerFast_OnTick &&
                  oscillator.getReceiver()->context == &tickSchedulerFastModule,
              "oscillator configuration", where);
    }
    comparePlatformCalls(where);
}

void Session::compareRecord(uint32_t id, const std::string& where) {
    const ModelRecord& expected = model.records()[id];
    const STickHandler* actual = addressOf[id];
    const std::string about = zyn_fuzz::recordAbout(id, expected.name, where);
    checkEqual(actual->enabled.load(), expected.enabled, "enabled", about);
    checkEqual(actual->groupMask.load(), expected.groupMask, "groupMask", about);
    checkEqual(actual->tickInterval, 0u, "tickInterval", about);
    checkEqual(actual->prio.load(), 5, "prio", about);
    checkEqual(actual->currentInterval.load(), 0u, "currentInterval", about);
    zyn_fuzz::checkRecordName(actual->name, expected.name, about);
    if (expected.place == Place::Listed) {
        check(actual->tickReceiver.context == &clients[expected.client] &&
                  actual->tickReceiver.onTick == &Session::onTick,
              "receiver", about);
    }
}

void Session::comparePlatformCalls(const std::string& where) {
    const PlatformCalls& expected = model.platformCalls();
    zyn_fuzz::checkModuleRegistrations(kModuleId, "CTickSchedulerFast", expected, where);
    const auto callbacks = platform_double::callbackRegistrations();
    checkEqual(callbacks.size(), expected.callbackRegistrations, "callback registrations", where);
    for (const auto& callback : callbacks) {
        const std::vector<uint32_t> phases{11, 13, 16};
        check(callback.moduleId == kModuleId && callback.callbackName == "CCTickSchedulerFast_OnPhaseActivation" &&
                  callback.param1 == 100 && callback.param2 == 3 && callback.param3 == 0 &&
                  callback.callbackContext != nullptr && callback.callbackContext->context == nullptr &&
                  callback.callbackContext->callback == &CTickSchedulerFast_OnPhaseActivation &&
                  callback.phases == phases,
              "callback registration", where);
    }
    zyn_fuzz::checkInterfaceCalls("ITickSchedulerFast", expected, where);
}

// Outside a tick the module must never leave its mutex held.
void Session::checkMutexIsFree(const std::string& where) {
    pthread_mutex_t* mutex = &tickSchedulerFastModule.tickMutex;
    check(pthread_mutex_trylock(mutex) == 0, "the module's mutex is held", where);
    pthread_mutex_unlock(mutex);
}

}  // namespace
}  // namespace fast_fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fast_fuzz::Session session;
    session.run(data, size);
    return 0;
}
