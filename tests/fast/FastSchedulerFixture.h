// Shared set-up of the fast scheduler's white-box tests.
//
// The module is a process-wide static, so every test starts from the same
// state whatever ran before it: no handler in the list, the module freshly
// initialised against a reset platform double, the oscillator in a state in
// which any configuration by phase 11 shows. Each test ends by freeing every
// handler still in the list and uninitialising the module.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "CTickSchedulerFast.h"
#include "CTickSchedulerFastModule.h"
#include "PlatformDouble.h"
#include "TickResultCodes.h"

namespace fast_test {

/// The labels of the tick functions called, in call order.
using Log = std::vector<std::string>;
using platform_double::ListFunction;

/// The functions the module's traces are written under.
constexpr const char* kInitialize = "CTickSchedulerFast_Initialize";
constexpr const char* kRegister = "CTickSchedulerFast_RegisterTickHandler";
constexpr const char* kUnregister = "CTickSchedulerFast_UnregisterTickHandler";
constexpr const char* kUnregisterFromOnTick = "CTickSchedulerFast_UnregisterTickHandlerFromOnTick";
constexpr const char* kOnTick = "CTickSchedulerFast_OnTick";

inline CTickSchedulerFast& module() { return tickSchedulerFastModule; }

/// The handlers currently in the module's list, head first.
inline std::vector<STickHandler*> handlersInList() {
    std::vector<STickHandler*> handlers;
    for (void* element : platform_double::listElements(&module().handlerList)) {
        handlers.push_back(static_cast<STickHandler*>(element));
    }
    return handlers;
}

/// Unregisters (and so frees) every handler still in the list, including
/// those whose handle never reached a client.
inline void freeAllHandlers() {
    for (STickHandler* handle : handlersInList()) {
        ASSERT_EQ(CTickSchedulerFast_UnregisterTickHandler(&handle), TickResult::Success);
    }
}

/// Leaves an oscillator that phase 11 has configured in a state that phase 11
/// would change (6 ms, no receiver, stopped); one never configured stays so.
inline void resetOscillator() {
    TickOscillator& oscillator = module().tickOscillator;
    oscillator.stop();
    if (oscillator.isInitialized()) {
        oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_LOWEST);
        oscillator.registerOnTick(nullptr);
    }
}

/// The module freshly initialised, empty, and every record of the double
/// cleared.
class FastSchedulerTest : public ::testing::Test {
protected:
    void SetUp() override {
        platform_double::reset();
        freeAllHandlers();
        CTickSchedulerFast_Uninitialize();
        resetOscillator();
        ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
        platform_double::reset();
    }

    void TearDown() override {
        platform_double::reset();
        freeAllHandlers();
        CTickSchedulerFast_Uninitialize();
        resetOscillator();
        platform_double::reset();
    }
};

/// A client whose tick function appends its label to a shared log.
class RecordingClient {
public:
    RecordingClient(std::string label, std::vector<std::string>& log) : label(std::move(label)), log(&log) {}

    ITickReceiver receiver() { return ITickReceiver{this, &RecordingClient::onTick}; }

    /// Registers under `name` (the label when empty) and keeps the handle.
    uint32_t registerHandler(const std::string& name = std::string()) {
        const ITickReceiver tickReceiver = receiver();
        return CTickSchedulerFast_RegisterTickHandler(&handle, &tickReceiver,
                                                      name.empty() ? label.c_str() : name.c_str());
    }

    STickHandler* handle = nullptr;

private:
    static void onTick(void* context) {
        auto* self = static_cast<RecordingClient*>(context);
        self->log->push_back(self->label);
    }

    std::string label;
    std::vector<std::string>* log;
};

/// Registers `clients` in that order, then clears what the double recorded,
/// so that a test sees only what its own calls do.
inline void registerInOrder(std::initializer_list<RecordingClient*> clients) {
    for (RecordingClient* client : clients) {
        ASSERT_EQ(client->registerHandler(), TickResult::Success);
    }
    platform_double::reset();
}

/// The fixture with three recording clients on one log, labelled as the
/// test needs them.
class FastSchedulerWithThreeClients : public FastSchedulerTest {
protected:
    FastSchedulerWithThreeClients(const char* first, const char* second, const char* third)
        : a(first, log), b(second, log), c(third, log) {}

    /// Registers the three clients in order; the double starts afresh.
    void registerThree() { registerInOrder({&a, &b, &c}); }

    Log log;
    RecordingClient a;
    RecordingClient b;
    RecordingClient c;
};

/// `count` ticks, delivered as the oscillator would.
inline void tick(int count = 1) {
    for (int i = 0; i < count; ++i) {
        CTickSchedulerFast_OnTick(nullptr);
    }
}

/// Where the module's traces come from.
constexpr const char* kSourceFile = "PlatformServices/TickScheduler/private/CTickSchedulerFast.cpp";

/// The messages (not entry records) written under `function`, as
/// "level:text".
inline std::vector<std::string> messagesOf(const std::string& function) {
    std::vector<std::string> texts;
    for (const platform_double::TraceRecord& record : platform_double::tracesOf(function)) {
        if (!record.entry) {
            texts.push_back(std::to_string(record.level) + ":" + record.text);
        }
    }
    return texts;
}

}  // namespace fast_test
