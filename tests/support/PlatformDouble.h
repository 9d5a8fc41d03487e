// A test double of the whole platform: module manager, interface broker,
// trace service, list service and thread utilities.
//
// It records every call the library makes and returns scripted results, so
// tests can assert exact trace lines and drive every failure path. State is
// process-wide (the library's modules are process-wide statics too); call
// platform_double::reset() at the start of each test. All functions are
// thread-safe.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "CList.h"
#include "CModuleManager.h"
#include "InterfaceBroker.h"
#include "KivTrace.h"

namespace platform_double {

/// Restores every default: all trace levels enabled (7), every platform call
/// succeeding, no recorded calls, an empty broker.
void reset();

// ---- Trace service -------------------------------------------------------

struct TraceRecord {
    uint32_t level;
    std::string file;
    uint32_t line;
    std::string function;
    std::string text;
    bool entry;  ///< logEnterMsg rather than logMsg
};

struct TraceConstruction {
    std::string moduleName;
    uint32_t defaultLevel;
    uint32_t headerOption;
};

/// Levels up to and including `maxLevel` are enabled (0 disables all).
void setTraceLevel(uint32_t maxLevel);
std::vector<TraceRecord> traces();
/// Only the records written under `function`.
std::vector<TraceRecord> tracesOf(const std::string& function);
/// Only the messages (not entry records) at `level`, as texts.
std::vector<std::string> messagesAt(uint32_t level);
void clearTraces();
/// Every KivTrace object constructed in this process, in order.
std::vector<TraceConstruction> traceConstructions();
/// How often isEnabled was asked, since the last reset.
uint64_t isEnabledCalls();
/// From now on every logMsg and logEnterMsg sets errno to `value`, as a
/// trace service whose output stream fails would (0, the default after reset:
/// errno is left alone). Lets tests prove that tracing keeps the caller's errno.
void scriptTraceErrno(int value);

// ---- Module manager ------------------------------------------------------

struct ModuleRegistration {
    uint32_t moduleId;
    std::string moduleName;
};

struct CallbackRegistration {
    uint32_t moduleId;
    std::string callbackName;
    uint32_t param1;
    SPhaseCallbackContext* callbackContext;
    uint32_t param2;
    uint32_t param3;
    const uint32_t* phasesAddress;
    std::vector<uint32_t> phases;  ///< copied at registration
};

/// Results the next calls return (until changed or reset).
void scriptRegisterModuleResult(uint32_t result);
void scriptRegisterCallbackResult(uint32_t result);
std::vector<ModuleRegistration> moduleRegistrations();
std::vector<CallbackRegistration> callbackRegistrations();
/// Calls the last phase callback registered for `moduleId` with `phase`, as
/// the module manager would; returns its result.
uint32_t activatePhase(uint32_t moduleId, uint32_t phase);

// ---- Interface broker ----------------------------------------------------

struct BrokerCall {
    bool registration;  ///< registerInterface, otherwise unregisterInterface
    std::string name;
    IInterface* iface;        ///< registerInterface: the object passed
    IInterface** removedOut;  ///< unregisterInterface: the out pointer passed
};

/// Result of registerInterface (until changed or reset). A refused
/// registration does not store the object.
void scriptRegisterInterfaceResult(uint32_t result);
std::vector<BrokerCall> brokerCalls();
/// Called by registerInterface with the name and the object as the broker
/// receives them, before it answers (until changed or reset); lets a test
/// look at the object's slots at that moment. Runs without the double's
/// lock held.
using InterfaceObserver = std::function<void(const std::string& name, IInterface* iface)>;
void observeInterfaceRegistrations(InterfaceObserver observer);

// ---- List service --------------------------------------------------------

enum class ListFunction { Construct, PushTail, Remove, IsEmpty, StartIterationFromHead, GetNext };

/// Result of CList_Remove for a pointer that is not in the list (default 32771).
void scriptListRemoveMissingResult(uint32_t result);
/// The `n`-th CList_GetNext call from now on (1 = the next one) delivers null.
void scriptListGetNextNullAt(uint32_t n);
/// The list functions called, in order.
std::vector<ListFunction> listCalls();
/// The elements of `list`, head first.
std::vector<void*> listElements(CList* list);

// ---- Thread utilities ----------------------------------------------------

struct SchedulingCall {
    std::thread::native_handle_type thread;
    int policy;
    int priority;
};

struct NamingCall {
    std::thread::native_handle_type thread;
    std::string name;
};

/// Result of setScheduling / setName (until changed or reset). setName also
/// applies the name for real when its result is 0; setScheduling never
/// changes the thread.
void scriptSetSchedulingResult(int result);
void scriptSetNameResult(int result);
std::vector<SchedulingCall> schedulingCalls();
std::vector<NamingCall> namingCalls();

}  // namespace platform_double
