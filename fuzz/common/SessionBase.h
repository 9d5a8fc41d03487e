// One fuzz input's run against a scheduler module and its reference model,
// as both targets do it: the loop over the decoded operations, each performed
// on the model and the library, the tick functions of the clients, and after
// every step the comparison of results, trace lines, records, handle
// variables, the handler list and the calls made to the platform.
//
// A target derives its session from SessionBase, names the module's C
// functions and identity in a ModuleUnderTest, and adds what only its module
// has: its own operations, its set-up and clean-up, and its own state.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "FuzzNames.h"
#include "HarnessLimits.h"
#include "ITickReceiver.h"
#include "InputCodec.h"
#include "ModelBase.h"
#include "ModelSupport.h"
#include "PlatformDouble.h"
#include "STickHandler.h"
#include "TraceLedger.h"

namespace zyn_fuzz {

/// The C functions of a scheduler module that both targets call alike, and
/// how the module makes itself known to the platform.
struct ModuleUnderTest {
    uint32_t (*unregisterHandler)(STickHandler**);
    uint32_t (*enableHandler)(STickHandler*);
    uint32_t (*disableHandler)(STickHandler*);
    uint32_t (*addGroup)(STickHandler*, uint32_t);
    uint32_t (*removeGroup)(STickHandler*, uint32_t);
    uint32_t (*enableGroup)(uint32_t);
    uint32_t (*disableGroup)(uint32_t);
    void (*uninitialize)();
    uint32_t (*onPhaseActivation)(void*, uint32_t);
    void (*onTick)(void*);
    void* tickContext;  ///< what the module's oscillator hands its tick dispatch

    uint32_t moduleId;
    const char* moduleName;
    const char* callbackName;
    const char* interfaceName;
    std::vector<uint32_t> phases;  ///< the phases the module subscribes to, in order
    /// The phase-callback record the module must register; null: any record
    /// that names the module's phase function.
    const SPhaseCallbackContext* phaseCallbackContext;
};

/// The module state the session compares whatever the module.
struct ModuleFlags {
    uint32_t disabledGroups;
    uint32_t initialized;
};

template <typename Op, typename Model>
class SessionBase {
public:
    SessionBase(const SessionBase&) = delete;
    SessionBase& operator=(const SessionBase&) = delete;

    void run(const uint8_t* data, size_t size) {
        OperationTrail::current().clear();
        // Every input starts from the same module state, whatever earlier
        // inputs left behind: uninitialised, both groups enabled.
        platform_double::reset();
        module.uninitialize();
        module.enableGroup(0);
        module.enableGroup(1);
        check(listedInLibrary().empty(), "an earlier input left handlers registered", std::string());
        prepareLibrary();
        platform_double::reset();
        ledger.discard();
        InputDecoder input(data, size);
        for (size_t n = 0; n < kMaxOperations && !input.exhausted(); ++n) {
            perform(decodeOp(input), false);
        }
        ledger.setLevel(0);
        cleanUp();
        platform_double::reset();
        ledger.discard();
    }

protected:
    using Kind = decltype(Op::kind);

    /// A client module: its tick function runs what was armed on it.
    struct Client {
        SessionBase* session = nullptr;
        uint32_t index = 0;
        std::vector<Op> armed;
    };

    /// The arguments of a Register: a handle variable, receiver and name
    /// pointer, each made null as the operation's variant says.
    struct RegisterArguments {
        STickHandler** variable;
        ITickReceiver receiver;
        bool nullReceiver;
        const char* name;
        const ITickReceiver* receiverPointer() const { return nullReceiver ? nullptr : &receiver; }
    };

    SessionBase(const ModuleUnderTest& module, Op (*decode)(InputDecoder&), std::string (*describe)(const Op&))
        : module(module), decodeOp(decode), describeOp(describe), model(ledger) {
        for (uint32_t i = 0; i < kClients; ++i) {
            clients[i].session = this;
            clients[i].index = i;
        }
        const ModelRecord& foreign = model.records()[model.foreignRecord()];
        foreignRecord.tickReceiver = {nullptr, nullptr};
        foreignRecord.enabled.store(foreign.enabled);
        foreignRecord.tickInterval = foreign.interval;
        foreignRecord.prio.store(foreign.prio);
        foreignRecord.currentInterval.store(foreign.counter);
        std::snprintf(foreignRecord.name, sizeof(foreignRecord.name), "%s", foreign.name.c_str());
        foreignRecord.groupMask.store(foreign.groupMask);
        addressOf.push_back(&foreignRecord);
    }
    virtual ~SessionBase() = default;

    /// Brings the rest of the module's state to where every input starts.
    virtual void prepareLibrary() = 0;
    /// Unregisters what the input left registered (trace levels are off).
    virtual void cleanUp() = 0;
    /// Calls the module for an operation only this target has.
    virtual uint32_t callOwn(const Op& op, const Outcome& outcome) = 0;
    /// Calls the module's Initialize once the platform results are scripted.
    virtual uint32_t callInitialize(const Op& op) = 0;
    /// What the module's list holds now, in order.
    virtual std::vector<STickHandler*> listedInLibrary() const = 0;
    virtual ModuleFlags moduleFlags() const = 0;
    /// Compares the state only this module has.
    virtual void compareOwnState(const std::string& where) = 0;
    /// After the module was called for `op`, before the comparisons.
    virtual void afterCall(const Op& /*op*/, uint32_t /*result*/, const std::string& /*name*/) {}
    /// After a top-level operation or a tick: what must hold between ticks.
    virtual void checkBetweenTicks(const std::string& /*where*/) {}
    /// When a tick function has run what was armed on it.
    virtual void leaveTickFunction(uint32_t /*client*/) {}

    static void onTick(void* context) {
        auto* client = static_cast<Client*>(context);
        client->session->enterTickFunction(*client);
    }

    RegisterArguments registerArguments(const Op& op, const Outcome& outcome) {
        return RegisterArguments{
            (op.variant & kNullHandleVariable) != 0 ? nullptr : &slots[static_cast<size_t>(outcome.slot)],
            ITickReceiver{&clients[op.client], &SessionBase::onTick}, (op.variant & kNullReceiver) != 0,
            (op.variant & kNullName) != 0 ? nullptr : op.text.c_str()};
    }

    /// The model's tick walk, through the interface every model has.
    ModelBase<Op>& walk() { return model; }

    STickHandler* handleIn(uint8_t slot) const { return slot == kNullSlot ? nullptr : slots[slot]; }
    STickHandler** variableIn(uint8_t slot) { return slot == kNullSlot ? nullptr : &slots[slot]; }

    const ModuleUnderTest& module;
    Op (*decodeOp)(InputDecoder&);
    std::string (*describeOp)(const Op&);
    TraceLedger ledger;
    Model model;
    std::array<STickHandler*, kSlots> slots{};
    std::vector<STickHandler*> addressOf;  // by record id; null once freed
    std::array<Client, kClients> clients;
    STickHandler foreignRecord{};

private:
    void perform(const Op& op, bool nested) {
        const std::string name = describeOp(op);
        OperationTrail::current().add((nested ? "    from a tick function: " : "") + name);
        if (op.kind == Kind::Tick) {
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
        afterCall(op, result, name);
        noteRecords(outcome);
        ledger.verify("after " + name);
        compareState("after " + name);
        if (!nested) {
            checkBetweenTicks("after " + name);
        }
    }

    uint32_t callLibrary(const Op& op, const Outcome& outcome) {
        switch (op.kind) {
            case Kind::Unregister:
                return module.unregisterHandler(variableIn(op.slot));
            case Kind::Enable:
                return module.enableHandler(handleIn(op.slot));
            case Kind::Disable:
                return module.disableHandler(handleIn(op.slot));
            case Kind::AddGroup:
                return module.addGroup(handleIn(op.slot), op.a);
            case Kind::RemoveGroup:
                return module.removeGroup(handleIn(op.slot), op.a);
            case Kind::EnableGroup:
                return module.enableGroup(op.a);
            case Kind::DisableGroup:
                return module.disableGroup(op.a);
            case Kind::WriteEnabled:
                slots[op.slot]->enabled.store(op.a);
                return 0;
            case Kind::LoadForeignRecord:
                slots[static_cast<size_t>(outcome.slot)] = &foreignRecord;
                return 0;
            case Kind::ArmNested:
                clients[op.client].armed.push_back(op.nested.front());
                return 0;
            case Kind::TraceLevel:
                return 0;
            case Kind::Initialize:
                platform_double::scriptRegisterModuleResult(op.b);
                platform_double::scriptRegisterCallbackResult(op.c);
                platform_double::scriptRegisterInterfaceResult(op.d);
                return callInitialize(op);
            case Kind::Uninitialize:
                module.uninitialize();
                return 0;
            case Kind::Phase:
                return module.onPhaseActivation(nullptr, op.a);
            case Kind::Tick:
                fail("a tick is not an operation for callLibrary()");
            default:
                return callOwn(op, outcome);
        }
    }

    /// Remembers where the record an operation created lives, and forgets
    /// the one it freed.
    void noteRecords(const Outcome& outcome) {
        if (outcome.newRecord != kNoRecord) {
            addressOf.resize(outcome.newRecord + 1, nullptr);
            addressOf[outcome.newRecord] = slots[static_cast<size_t>(outcome.slot)];
            check(addressOf[outcome.newRecord] != nullptr, "registration left the handle variable empty",
                  std::string());
        }
        if (outcome.freedRecord != kNoRecord) {
            addressOf[outcome.freedRecord] = nullptr;
        }
    }

    void tick() {
        walk().beginTick();
        module.onTick(module.tickContext);
        for (uint32_t id : walk().finishTick()) {
            addressOf[id] = nullptr;
        }
        ledger.verify("after the tick");
        compareState("after the tick");
        checkBetweenTicks("after the tick");
    }

    void enterTickFunction(Client& client) {
        const std::string where = expectTickFunction(client.index);
        ledger.verify(where);
        compareState(where);
        std::vector<Op> armed;
        armed.swap(client.armed);
        for (const Op& op : armed) {
            perform(op, true);
        }
        leaveTickFunction(client.index);
    }

    /// Checks that the model expects the tick function of `client` to be
    /// entered now; returns where this happens, for the comparisons.
    std::string expectTickFunction(uint32_t client) {
        const std::optional<uint32_t> expected = walk().nextCall();
        if (!expected) {
            fail("the library entered the tick function of client " + std::to_string(client) +
                 ", the model expects no further call in this tick");
        }
        const ModelRecord& record = model.records()[*expected];
        if (record.client != client) {
            fail("the library entered the tick function of client " + std::to_string(client) +
                 ", the model expects that of client " + std::to_string(record.client) + " (handler \"" +
                 printable(record.name) + "\")");
        }
        return "on entering the tick function of client " + std::to_string(client);
    }

    void compareState(const std::string& where) {
        compareList(where);
        for (uint32_t id = 0; id < model.records().size(); ++id) {
            if (Model::compared(model.records()[id])) {
                compareRecord(id, where);
            }
        }
        for (size_t slot = 0; slot < kSlots; ++slot) {
            const uint32_t id = model.slots()[slot];
            if (slots[slot] != (id == kNoRecord ? nullptr : addressOf[id])) {
                fail("handle variable " + std::to_string(slot) + " " + where);
            }
        }
        const ModuleFlags flags = moduleFlags();
        checkEqual(flags.disabledGroups, model.disabledGroups(), "disabled groups", where);
        checkEqual(flags.initialized, model.initialized() ? 1u : 0u, "initialized", where);
        compareOwnState(where);
        comparePlatformCalls(where);
    }

    void compareList(const std::string& where) {
        std::vector<STickHandler*> expected;
        for (uint32_t id : model.listed()) {
            expected.push_back(addressOf[id]);
        }
        const std::vector<STickHandler*> actual = listedInLibrary();
        if (actual != expected) {
            fail("handler list " + where + "\n  library:" + listDescription(actual) +
                 "\n  model:  " + listDescription(expected));
        }
    }

    std::string listDescription(const std::vector<STickHandler*>& handlers) const {
        std::string text;
        for (STickHandler* handler : handlers) {
            text += " [";
            for (uint32_t id = 0; id < addressOf.size(); ++id) {
                if (addressOf[id] == handler) {
                    text += "record " + std::to_string(id) + " \"" + printable(model.records()[id].name) + "\"";
                    break;
                }
            }
            text += "]";
        }
        return text;
    }

    void compareRecord(uint32_t id, const std::string& where) {
        const ModelRecord& expected = model.records()[id];
        const STickHandler* actual = addressOf[id];
        const std::string about = "of record " + std::to_string(id) + " \"" + printable(expected.name) + "\" " + where;
        checkEqual(actual->enabled.load(), expected.enabled, "enabled", about);
        checkEqual(actual->tickInterval, expected.interval, "tickInterval", about);
        checkEqual(actual->prio.load(), expected.prio, "prio", about);
        checkEqual(actual->currentInterval.load(), expected.counter, "currentInterval", about);
        checkEqual(actual->groupMask.load(), expected.groupMask, "groupMask", about);
        check(std::memchr(actual->name, '\0', sizeof(actual->name)) != nullptr, "name is not terminated", about);
        if (std::string(actual->name) != expected.name) {
            fail("name " + about + ": library has \"" + printable(actual->name) + "\"");
        }
        if (expected.place != Place::Foreign) {
            check(actual->tickReceiver.context == &clients[expected.client] &&
                      actual->tickReceiver.onTick == &SessionBase::onTick,
                  "receiver", about);
        }
    }

    void comparePlatformCalls(const std::string& where) {
        const PlatformCalls& expected = model.platformCalls();
        const auto modules = platform_double::moduleRegistrations();
        checkEqual(modules.size(), expected.moduleRegistrations, "module registrations", where);
        for (const auto& registration : modules) {
            check(registration.moduleId == module.moduleId && registration.moduleName == module.moduleName,
                  "module registration", where);
        }
        const auto callbacks = platform_double::callbackRegistrations();
        checkEqual(callbacks.size(), expected.callbackRegistrations, "callback registrations", where);
        for (const auto& callback : callbacks) {
            const SPhaseCallbackContext* context = callback.callbackContext;
            check(callback.moduleId == module.moduleId && callback.callbackName == module.callbackName &&
                      callback.param1 == 100 && callback.param2 == 3 && callback.param3 == 0 &&
                      callback.phases == module.phases && context != nullptr &&
                      (module.phaseCallbackContext == nullptr || context == module.phaseCallbackContext) &&
                      context->context == nullptr && context->callback == module.onPhaseActivation,
                  "callback registration", where);
        }
        compareInterfaceCalls(where);
    }

    void compareInterfaceCalls(const std::string& where) {
        size_t registrations = 0;
        size_t withdrawals = 0;
        for (const auto& call : platform_double::brokerCalls()) {
            check(call.name == module.interfaceName, "interface name", where);
            if (call.registration) {
                ++registrations;
                check(call.iface != nullptr, "registered interface object", where);
            } else {
                ++withdrawals;
                check(call.removedOut == nullptr, "interface withdrawal asks for the removed object", where);
            }
        }
        checkEqual(registrations, model.platformCalls().interfaceRegistrations, "interface registrations", where);
        checkEqual(withdrawals, model.platformCalls().interfaceWithdrawals, "interface withdrawals", where);
    }
};

/// The libFuzzer entry of a target: one session runs one input.
template <typename Session>
int runOneInput(const uint8_t* data, size_t size) {
    Session session;
    session.run(data, size);
    return 0;
}

}  // namespace zyn_fuzz
