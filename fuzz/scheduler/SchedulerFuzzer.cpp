// Fuzz target for CTickScheduler: decodes the input into operations, runs
// each on the library and on the reference model, and aborts on the first
// difference in a result, a trace line, a call of a tick function or the
// module's state. Ticks are driven by calling the module's tick dispatch
// directly; the oscillator thread that phase 14 starts stays parked and
// never ticks (ParkedOscillator.h), so every run is deterministic.
#include <cstring>
#include <new>
#include <stdexcept>

#include "CTickScheduler.h"
#include "CTickSchedulerModule.h"
#include "FuzzCheck.h"
#include "FuzzNames.h"
#include "ParkedOscillator.h"
#include "PlatformDouble.h"
#include "SchedulerModel.h"
#include "SchedulerOps.h"
#include "SessionSupport.h"
#include "TraceLedger.h"

namespace sched_fuzz {
namespace {

using zyn_fuzz::check;
using zyn_fuzz::checkEqual;
using zyn_fuzz::fail;

constexpr uint32_t kModuleId = 22000;
// A started oscillator thread parks at once; only a stuck thread takes this.
constexpr unsigned kParkingSeconds = 10;

class Session;

/// A client module: its tick function runs what was armed on it.
struct Client {
    Session* session = nullptr;
    uint32_t index = 0;
    std::vector<Op> armed;
    ThrowKind throwKind = ThrowKind::None;
    std::string what;
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
    std::string listDescription(const std::vector<STickHandler*>& handlers) const;
    void compareState(const std::string& where);
    void compareOscillator(const std::string& where);
    void compareRecord(uint32_t id, const std::string& where);
    void comparePlatformCalls(const std::string& where);

    zyn_fuzz::TraceLedger ledger;
    SchedulerModel model;
    std::array<STickHandler*, kSlots> slots{};
    std::vector<STickHandler*> addressOf;  // by record id; null once freed
    std::array<Client, kClients> clients;
    STickHandler foreignRecord{};
};

Session::Session() : model(ledger) {
    zyn_fuzz::bindClients(clients, this);
    const ModelRecord& foreign = model.records()[model.foreignRecord()];
    zyn_fuzz::fillForeignHandler(foreignRecord, foreign.enabled, foreign.interval, foreign.prio, foreign.counter,
                                 foreign.name, foreign.groupMask);
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

// Every input starts from the same module state, whatever earlier inputs
// left behind: uninitialised, no handler, both groups enabled, not frozen.
void Session::prepareLibrary() {
    platform_double::reset();
    CTickScheduler_Uninitialize();
    CTickScheduler_EnableTickGroup(0);
    CTickScheduler_EnableTickGroup(1);
    CTickScheduler_Unfreeze();
    check(tickScheduler.tickHandlers.empty(), "an earlier input left handlers registered", std::string());
    // An oscillator that an earlier phase 11 configured is made new, as the
    // library left it at load: the oscillator has no way back to that state.
    TickOscillator& oscillator = tickScheduler.tickOscillator;
    ParkedOscillator::restoreReceiver(oscillator);
    if (oscillator.isInitialized()) {
        oscillator.~TickOscillator();
        new (&oscillator) TickOscillator();
    }
    platform_double::reset();
    ledger.discard();
}

void Session::cleanUp() {
    ledger.setLevel(0);
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
    platform_double::reset();
    ledger.discard();
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
    if (op.kind == OpKind::Phase && op.a == 14 && result == 0) {
        check(ParkedOscillator::waitUntilParked(kParkingSeconds), "the oscillator thread did not start", name);
    }
    ParkedOscillator::restoreReceiver(tickScheduler.tickOscillator);
    zyn_fuzz::noteNewRecord(addressOf, slots, outcome);
    ledger.verify("after " + name);
    compareState("after " + name);
}

uint32_t Session::callLibrary(const Op& op, const Outcome& outcome) {
    switch (op.kind) {
        case OpKind::Register: {
            const ITickReceiver receiver{&clients[op.client], &Session::onTick};
            STickHandler** variable =
                (op.variant & kNullHandleVariable) != 0 ? nullptr : &slots[static_cast<size_t>(outcome.slot)];
            return CTickScheduler_RegisterTickHandler(variable, (op.variant & kNullReceiver) != 0 ? nullptr : &receiver,
                                                      op.a, (op.variant & kNullName) != 0 ? nullptr : op.text.c_str());
        }
        case OpKind::Unregister:
            return CTickScheduler_UnregisterTickHandler(op.slot == kNullSlot ? nullptr : &slots[op.slot]);
        case OpKind::Enable:
            return CTickScheduler_EnableTickHandler(handleIn(op.slot));
        case OpKind::Disable:
            return CTickScheduler_DisableTickHandler(handleIn(op.slot));
        case OpKind::SetPriority:
            return CTickScheduler_SetTickPriority(handleIn(op.slot), static_cast<int32_t>(op.a));
        case OpKind::SetStartOffset:
            return CTickScheduler_SetStartOffset(handleIn(op.slot), op.a);
        case OpKind::AddGroup:
            return CTickScheduler_AddGroup(handleIn(op.slot), op.a);
        case OpKind::RemoveGroup:
            return CTickScheduler_RemoveGroup(handleIn(op.slot), op.a);
        case OpKind::EnableGroup:
            return CTickScheduler_EnableTickGroup(op.a);
        case OpKind::DisableGroup:
            return CTickScheduler_DisableTickGroup(op.a);
        case OpKind::Freeze:
            return CTickScheduler_Freeze();
        case OpKind::Unfreeze:
            return CTickScheduler_Unfreeze();
        case OpKind::WriteEnabled:
            slots[op.slot]->enabled.store(op.a);
            return 0;
        case OpKind::LoadForeignRecord:
            slots[static_cast<size_t>(outcome.slot)] = &foreignRecord;
            return 0;
        case OpKind::CopyForeignHandle:
            slots[static_cast<size_t>(outcome.slot)] = slots[op.slot];
            return 0;
        case OpKind::ArmNested:
            clients[op.client].armed.push_back(op.nested.front());
            return 0;
        case OpKind::ArmThrow:
            clients[op.client].throwKind = static_cast<ThrowKind>(op.variant);
            clients[op.client].what = op.text;
            return 0;
        case OpKind::TraceLevel:
            return 0;
        case OpKind::Initialize: {
            platform_double::scriptRegisterModuleResult(op.b);
            platform_double::scriptRegisterCallbackResult(op.c);
            platform_double::scriptRegisterInterfaceResult(op.d);
            const auto priority = static_cast<ETickPriority>(static_cast<int32_t>(op.a));
            return CTickScheduler_Initialize(&priority);
        }
        case OpKind::Uninitialize:
            CTickScheduler_Uninitialize();
            return 0;
        case OpKind::Phase:
            return CTickScheduler_OnPhaseActivation(nullptr, op.a);
        case OpKind::Tick:
            break;
    }
    fail("a tick is not an operation for callLibrary()");
}

void Session::tick() {
    model.beginPass();
    CTickScheduler_OnTick(&tickScheduler);
    for (uint32_t id : model.finishPass()) {
        addressOf[id] = nullptr;
    }
    ledger.verify("after the tick");
    compareState("after the tick");
}

void Session::enterTickFunction(Client& client) {
    const std::string where = zyn_fuzz::expectTickFunction(model.nextCall(), model.records(), client.index, "pass");
    ledger.verify(where);
    compareState(where);

    std::vector<Op> armed;
    armed.swap(client.armed);
    for (const Op& op : armed) {
        perform(op, true);
    }
    const ThrowKind kind = client.throwKind;
    client.throwKind = ThrowKind::None;
    if (kind == ThrowKind::None) {
        return;
    }
    model.noteThrow(kind, client.what);
    switch (kind) {
        case ThrowKind::RuntimeError:
            throw std::runtime_error(client.what);
        case ThrowKind::RangeError:
            throw std::range_error(client.what);
        case ThrowKind::LogicError:
            throw std::logic_error(client.what);
        case ThrowKind::Int:
        case ThrowKind::None:
            throw 42;
    }
}

std::string Session::listDescription(const std::vector<STickHandler*>& handlers) const {
    std::string text;
    for (STickHandler* handler : handlers) {
        text += " [";
        for (uint32_t id = 0; id < addressOf.size(); ++id) {
            if (addressOf[id] == handler) {
                text += "record " + std::to_string(id) + " \"" + zyn_fuzz::printable(model.records()[id].name) + "\"";
                break;
            }
        }
        text += "]";
    }
    return text;
}

void Session::compareState(const std::string& where) {
    std::vector<STickHandler*> expectedList;
    for (uint32_t id : model.listed()) {
        expectedList.push_back(addressOf[id]);
    }
    if (tickScheduler.tickHandlers != expectedList) {
        fail("handler list " + where + "\n  library:" + listDescription(tickScheduler.tickHandlers) +
             "\n  model:  " + listDescription(expectedList));
    }
    for (uint32_t id = 0; id < model.records().size(); ++id) {
        const Place place = model.records()[id].place;
        if (place == Place::Listed || place == Place::Dropped || place == Place::Foreign) {
            compareRecord(id, where);
        }
    }
    zyn_fuzz::checkHandleVariables(slots, model.slots(), addressOf, where);
    checkEqual(tickScheduler.disabledGroupMask.load(), model.disabledGroups(), "disabled groups", where);
    checkEqual(tickScheduler.initialized.load(), model.initialized() ? 1u : 0u, "initialized", where);
    check(tickScheduler.tickOscillator.isFrozen() == model.frozen(), "frozen flag", where);
    check(tickScheduler.inTick == model.inPass(), "pass marker", where);
    compareOscillator(where);
    if (model.tickPriority()) {
        checkEqual(static_cast<int32_t>(tickScheduler.tickPriority), *model.tickPriority(), "tick priority", where);
    }
    comparePlatformCalls(where);
}

void Session::compareOscillator(const std::string& where) {
    const TickOscillator& oscillator = tickScheduler.tickOscillator;
    check(oscillator.isRunning() == model.oscillatorStarted(), "oscillator thread", where);
    check(oscillator.isInitialized() == model.oscillatorReady(), "oscillator configuration", where);
    if (model.oscillatorReady()) {
        const ITickReceiver* const receiver = oscillator.getReceiver();
        check(oscillator.getDelay() == TICK_DELAY_6MS && receiver != nullptr &&
                  receiver->onTick == &CTickScheduler_OnTick && receiver->context == &tickScheduler,
              "oscillator configuration", where);
    }
}

void Session::compareRecord(uint32_t id, const std::string& where) {
    const ModelRecord& expected = model.records()[id];
    const STickHandler* actual = addressOf[id];
    const std::string about = zyn_fuzz::recordAbout(id, expected.name, where);
    checkEqual(actual->enabled.load(), expected.enabled, "enabled", about);
    checkEqual(actual->tickInterval, expected.interval, "tickInterval", about);
    checkEqual(actual->prio.load(), expected.prio, "prio", about);
    checkEqual(actual->currentInterval.load(), expected.counter, "currentInterval", about);
    checkEqual(actual->groupMask.load(), expected.groupMask, "groupMask", about);
    zyn_fuzz::checkRecordName(actual->name, expected.name, about);
    if (expected.place != Place::Foreign) {
        check(actual->tickReceiver.context == &clients[expected.client] &&
                  actual->tickReceiver.onTick == &Session::onTick,
              "receiver", about);
    }
}

void Session::comparePlatformCalls(const std::string& where) {
    const PlatformCalls& expected = model.platformCalls();
    zyn_fuzz::checkModuleRegistrations(kModuleId, "CTickScheduler", expected, where);
    const auto callbacks = platform_double::callbackRegistrations();
    checkEqual(callbacks.size(), expected.callbackRegistrations, "callback registrations", where);
    for (const auto& callback : callbacks) {
        const std::vector<uint32_t> phases{11, 13, 16, 14};
        check(callback.moduleId == kModuleId && callback.callbackName == "CCTickScheduler_OnPhaseActivation" &&
                  callback.param1 == 100 && callback.param2 == 3 && callback.param3 == 0 &&
                  callback.callbackContext == &phaseCallbackContext && callback.phases == phases,
              "callback registration", where);
    }
    if (expected.callbackRegistrations > 0) {
        check(phaseCallbackContext.context == nullptr &&
                  phaseCallbackContext.callback == &CTickScheduler_OnPhaseActivation,
              "phase-callback record", where);
    }
    zyn_fuzz::checkInterfaceCalls("ITickScheduler", expected, where);
}

}  // namespace
}  // namespace sched_fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    sched_fuzz::Session session;
    session.run(data, size);
    return 0;
}
