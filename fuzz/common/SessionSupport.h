// The parts of a fuzz target's session both targets share: the driver loop
// over the decoded operations, the operation trail, and the comparisons of
// handle variables, records and platform calls that do not depend on which
// module is under test.
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
#include "InputCodec.h"
#include "PlatformDouble.h"

namespace zyn_fuzz {

/// Tells each client its index and its session.
template <typename Client, typename Session>
void bindClients(std::array<Client, kClients>& clients, Session* session) {
    for (uint32_t i = 0; i < kClients; ++i) {
        clients[i].session = session;
        clients[i].index = i;
    }
}

/// Fills the handler record the module never created, as the model has it.
template <typename Handler>
void fillForeignHandler(Handler& handler, uint32_t enabled, uint32_t interval, int32_t prio, uint32_t counter,
                        const std::string& name, uint32_t groupMask) {
    handler.tickReceiver = {nullptr, nullptr};
    handler.enabled.store(enabled);
    handler.tickInterval = interval;
    handler.prio.store(prio);
    handler.currentInterval.store(counter);
    std::snprintf(handler.name, sizeof(handler.name), "%s", name.c_str());
    handler.groupMask.store(groupMask);
}

/// Decodes operations from the input and performs each at top level, until
/// the input is used up or kMaxOperations have run.
template <typename Op, typename Perform>
void performOperations(const uint8_t* data, size_t size, Op (*decodeOp)(InputDecoder&), Perform perform) {
    InputDecoder input(data, size);
    for (size_t n = 0; n < kMaxOperations && !input.exhausted(); ++n) {
        perform(decodeOp(input), false);
    }
}

/// Adds an operation to the trail of the current input.
inline void noteOperation(const std::string& name, bool nested) {
    OperationTrail::current().add((nested ? "    from a tick function: " : "") + name);
}

/// Remembers where the record an operation created lives.
template <typename Handler, typename Outcome>
void noteNewRecord(std::vector<Handler*>& addressOf, const std::array<Handler*, kSlots>& slots,
                   const Outcome& outcome) {
    if (outcome.newRecord == kNoRecord) {
        return;
    }
    addressOf.resize(outcome.newRecord + 1, nullptr);
    addressOf[outcome.newRecord] = slots[static_cast<size_t>(outcome.slot)];
    check(addressOf[outcome.newRecord] != nullptr, "registration left the handle variable empty", std::string());
}

/// Checks that the model expects the tick function of `client` to be entered
/// now; `span` names what runs ("tick", "pass"). Returns where this happens,
/// for the comparisons that follow.
template <typename Record>
std::string expectTickFunction(const std::optional<uint32_t>& expected, const std::vector<Record>& records,
                               uint32_t client, const char* span) {
    if (!expected) {
        fail("the library entered the tick function of client " + std::to_string(client) +
             ", the model expects no further call in this " + span);
    }
    const Record& record = records[*expected];
    if (record.client != client) {
        fail("the library entered the tick function of client " + std::to_string(client) +
             ", the model expects that of client " + std::to_string(record.client) + " (handler \"" +
             printable(record.name) + "\")");
    }
    return "on entering the tick function of client " + std::to_string(client);
}

/// Compares the handle variables of the clients with the model's.
template <typename Handler>
void checkHandleVariables(const std::array<Handler*, kSlots>& slots, const std::array<uint32_t, kSlots>& expected,
                          const std::vector<Handler*>& addressOf, const std::string& where) {
    for (size_t slot = 0; slot < kSlots; ++slot) {
        const uint32_t id = expected[slot];
        if (slots[slot] != (id == kNoRecord ? nullptr : addressOf[id])) {
            fail("handle variable " + std::to_string(slot) + " " + where);
        }
    }
}

/// How failure reports name a record.
inline std::string recordAbout(uint32_t id, const std::string& name, const std::string& where) {
    return "of record " + std::to_string(id) + " \"" + printable(name) + "\" " + where;
}

/// Compares a record's name buffer with the model's name.
template <size_t N>
void checkRecordName(const char (&actual)[N], const std::string& expected, const std::string& about) {
    check(std::memchr(actual, '\0', N) != nullptr, "name is not terminated", about);
    if (std::string(actual) != expected) {
        fail("name " + about + ": library has \"" + printable(actual) + "\"");
    }
}

/// Compares the module registrations made with the platform.
inline void checkModuleRegistrations(uint32_t moduleId, const char* moduleName, const PlatformCalls& expected,
                                     const std::string& where) {
    const auto modules = platform_double::moduleRegistrations();
    checkEqual(modules.size(), expected.moduleRegistrations, "module registrations", where);
    for (const auto& module : modules) {
        check(module.moduleId == moduleId && module.moduleName == moduleName, "module registration", where);
    }
}

/// Compares the registrations and withdrawals of the module's interface.
inline void checkInterfaceCalls(const char* interfaceName, const PlatformCalls& expected, const std::string& where) {
    size_t registrations = 0;
    size_t withdrawals = 0;
    for (const auto& call : platform_double::brokerCalls()) {
        check(call.name == interfaceName, "interface name", where);
        if (call.registration) {
            ++registrations;
            check(call.iface != nullptr, "registered interface object", where);
        } else {
            ++withdrawals;
            check(call.removedOut == nullptr, "interface withdrawal asks for the removed object", where);
        }
    }
    checkEqual(registrations, expected.interfaceRegistrations, "interface registrations", where);
    checkEqual(withdrawals, expected.interfaceWithdrawals, "interface withdrawals", where);
}

}  // namespace zyn_fuzz
