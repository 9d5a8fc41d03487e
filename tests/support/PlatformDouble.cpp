#include "PlatformDouble.h"

#include <pthread.h>

#include <cerrno>

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

#include "ThreadUtilities.h"
#include "ZynSupport/ListLinks.h"

namespace platform_double {
namespace {

constexpr uint32_t kDefaultMissingRemoveResult = 32771;

// A node that a cursor stands on is not freed by CList_Remove: it stays in the
// chain as a tombstone (null element) until the last cursor leaves it.
struct ListNode {
    void* element;
    ListNode* next;
    uint32_t cursors;
};

/// What reset() returns to its start: the scripted results and the calls
/// recorded.
struct ResettableState {
    uint32_t registerModuleResult = 0;
    uint32_t registerCallbackResult = 0;
    std::vector<ModuleRegistration> modules;
    std::vector<CallbackRegistration> callbacks;

    uint32_t registerInterfaceResult = 0;
    platform_double::InterfaceObserver interfaceObserver;
    std::vector<BrokerCall> brokerCalls;
    std::map<std::string, IInterface*> interfaces;

    uint32_t missingRemoveResult = kDefaultMissingRemoveResult;
    uint32_t getNextNullCountdown = 0;
    std::vector<ListFunction> listCalls;

    int setSchedulingResult = 0;
    int setNameResult = 0;
    std::vector<SchedulingCall> schedulingCalls;
    std::vector<NamingCall> namingCalls;

    uint32_t traceLevel = 7;
    int traceErrno = 0;
    uint64_t isEnabledCalls = 0;
    std::vector<TraceRecord> traces;
};

struct State : ResettableState {
    std::mutex mutex;
    // Kept across resets: the library constructs its trace objects once,
    // during static initialisation.
    std::vector<TraceConstruction> constructions;
    // Tombstones and the list holding each. An iteration that never ends (a
    // tick function that throws) leaves one behind; CList_Construct frees
    // those of its list without reading the old record.
    std::vector<std::pair<const CList*, ListNode*>> tombstones;
};

// A function-local static: KivTrace objects of the library under test are
// constructed during static initialisation, possibly before this file's own
// statics would be.
State& state() {
    static State* const instance = new State;
    return *instance;
}

template <typename T>
T copyUnderLock(const T& source) {
    std::lock_guard<std::mutex> lock(state().mutex);
    return source;
}

/// What a test scripts is read by the library's calls on other threads.
template <typename T>
void setUnderLock(T& field, T value) {
    std::lock_guard<std::mutex> lock(state().mutex);
    field = value;
}

void recordTrace(uint32_t level, const KivTraceHeader& header, const std::string& text, bool entry) {
    State& s = state();
    int clobber = 0;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.traces.push_back(TraceRecord{level, header.file ? header.file : "", header.line,
                                       header.function ? header.function : "", text, entry});
        clobber = s.traceErrno;
    }
    if (clobber != 0) {
        errno = clobber;
    }
}

void recordListCall(ListFunction function) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.listCalls.push_back(function);
}

}  // namespace

void reset() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    static_cast<ResettableState&>(s) = ResettableState{};
}

void setTraceLevel(uint32_t maxLevel) { setUnderLock(state().traceLevel, maxLevel); }

std::vector<TraceRecord> traces() { return copyUnderLock(state().traces); }

std::vector<TraceRecord> tracesOf(const std::string& function) {
    std::vector<TraceRecord> all = traces();
    all.erase(std::remove_if(all.begin(), all.end(), [&](const TraceRecord& r) { return r.function != function; }),
              all.end());
    return all;
}

std::vector<std::string> messagesAt(uint32_t level) {
    std::vector<std::string> texts;
    for (const TraceRecord& record : traces()) {
        if (!record.entry && record.level == level) {
            texts.push_back(record.text);
        }
    }
    return texts;
}

void clearTraces() {
    std::lock_guard<std::mutex> lock(state().mutex);
    state().traces.clear();
}

std::vector<TraceConstruction> traceConstructions() { return copyUnderLock(state().constructions); }

void scriptTraceErrno(int value) { setUnderLock(state().traceErrno, value); }

uint64_t isEnabledCalls() { return copyUnderLock(state().isEnabledCalls); }

void scriptRegisterModuleResult(uint32_t result) { setUnderLock(state().registerModuleResult, result); }

void scriptRegisterCallbackResult(uint32_t result) { setUnderLock(state().registerCallbackResult, result); }

std::vector<ModuleRegistration> moduleRegistrations() { return copyUnderLock(state().modules); }

std::vector<CallbackRegistration> callbackRegistrations() { return copyUnderLock(state().callbacks); }

uint32_t activatePhase(uint32_t moduleId, uint32_t phase) {
    SPhaseCallbackContext* record = nullptr;
    {
        std::lock_guard<std::mutex> lock(state().mutex);
        for (const CallbackRegistration& registration : state().callbacks) {
            if (registration.moduleId == moduleId) {
                record = registration.callbackContext;
            }
        }
    }
    if (record == nullptr || record->callback == nullptr) {
        return 0xFFFFFFFFu;
    }
    return record->callback(record->context, phase);
}

void scriptRegisterInterfaceResult(uint32_t result) { setUnderLock(state().registerInterfaceResult, result); }

void observeInterfaceRegistrations(InterfaceObserver observer) {
    setUnderLock(state().interfaceObserver, std::move(observer));
}

std::vector<BrokerCall> brokerCalls() { return copyUnderLock(state().brokerCalls); }

void scriptListRemoveMissingResult(uint32_t result) { setUnderLock(state().missingRemoveResult, result); }

void scriptListGetNextNullAt(uint32_t n) { setUnderLock(state().getNextNullCountdown, n); }

std::vector<ListFunction> listCalls() { return copyUnderLock(state().listCalls); }

std::vector<void*> listElements(CList* list) {
    std::vector<void*> elements;
    for (auto* node = static_cast<ListNode*>(list->head); node != nullptr; node = node->next) {
        if (node->element != nullptr) {
            elements.push_back(node->element);
        }
    }
    return elements;
}

void scriptSetSchedulingResult(int result) { setUnderLock(state().setSchedulingResult, result); }

void scriptSetNameResult(int result) { setUnderLock(state().setNameResult, result); }

std::vector<SchedulingCall> schedulingCalls() { return copyUnderLock(state().schedulingCalls); }

std::vector<NamingCall> namingCalls() { return copyUnderLock(state().namingCalls); }

}  // namespace platform_double

using platform_double::state;

// ---- The platform's entry points, as the library sees them ----------------

KivTrace::KivTrace(const char* moduleName, KivTraceLevel defaultLevel, KivTraceHdrOption headerOption) : impl(nullptr) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.constructions.push_back(platform_double::TraceConstruction{
        moduleName ? moduleName : "", static_cast<uint32_t>(defaultLevel), static_cast<uint32_t>(headerOption)});
}

// The double keeps its state in the process-wide record above, not behind
// `impl`; clearing it here is the object's only use of the field.
KivTrace::~KivTrace() { impl = nullptr; }

bool KivTrace::isEnabled(KivTraceLevel level) const {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    ++s.isEnabledCalls;
    return static_cast<uint32_t>(level) <= s.traceLevel;
}

void KivTrace::logMsg(KivTraceLevel level, const KivTraceHeader& header, const std::string& text) {
    platform_double::recordTrace(level, header, text, false);
}

void KivTrace::logEnterMsg(KivTraceLevel level, const KivTraceHeader& header) {
    platform_double::recordTrace(level, header, std::string(), true);
}

void KivTrace::logEnterMsg(KivTraceLevel level, const KivTraceHeader& header, const std::string& text) {
    platform_double::recordTrace(level, header, text, true);
}

extern "C" uint32_t CModuleManager_RegisterModule(uint32_t moduleId, const char* moduleName) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.modules.push_back(platform_double::ModuleRegistration{moduleId, moduleName ? moduleName : ""});
    return s.registerModuleResult;
}

extern "C" uint32_t CModuleManager_RegisterCallback(uint32_t moduleId, const char* callbackName, uint32_t param1,
                                                    SPhaseCallbackContext* callbackContext, uint32_t param2,
                                                    uint32_t param3, const uint32_t* phases, uint32_t phaseCount) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    platform_double::CallbackRegistration registration{
        moduleId, callbackName ? callbackName : "", param1, callbackContext, param2, param3, phases, {}};
    if (phases != nullptr) {
        registration.phases.assign(phases, phases + phaseCount);
    }
    s.callbacks.push_back(registration);
    return s.registerCallbackResult;
}

InterfaceBroker* InterfaceBroker::getInstance() {
    static InterfaceBroker broker;
    return &broker;
}

uint32_t InterfaceBroker::registerInterface(const std::string& name, IInterface* iface) {
    auto& s = state();
    const platform_double::InterfaceObserver observer = platform_double::copyUnderLock(s.interfaceObserver);
    if (observer) {
        observer(name, iface);
    }
    std::lock_guard<std::mutex> lock(s.mutex);
    s.brokerCalls.push_back(platform_double::BrokerCall{true, name, iface, nullptr});
    if (s.registerInterfaceResult < 32768u) {
        s.interfaces[name] = iface;
    }
    return s.registerInterfaceResult;
}

uint32_t InterfaceBroker::unregisterInterface(const std::string& name, IInterface** removed) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.brokerCalls.push_back(platform_double::BrokerCall{false, name, nullptr, removed});
    auto found = s.interfaces.find(name);
    IInterface* const previous = found == s.interfaces.end() ? nullptr : found->second;
    if (found != s.interfaces.end()) {
        s.interfaces.erase(found);
    }
    if (removed != nullptr) {
        *removed = previous;
    }
    return previous != nullptr ? 0u : 32768u;
}

IInterface* InterfaceBroker::getInterface(const std::string& name) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    auto found = s.interfaces.find(name);
    return found == s.interfaces.end() ? nullptr : found->second;
}

// The list keeps nodes {element, next, cursors}; head and tail point to nodes
// and the cursor points to the node to deliver next. Any element can be
// removed during an iteration: the node a cursor stands on becomes a
// tombstone that the cursor's next CList_GetNext steps over and frees.
using platform_double::ListFunction;
using platform_double::ListNode;

namespace {

// Result of CList_GetNext when the script makes it fail: an error, so that the
// caller cannot take it for the end of the list.
constexpr uint32_t kScriptedGetNextFailure = 32768;

ListNode* headOf(const CList* list) { return static_cast<ListNode*>(list->head); }

ListNode* firstLiveFrom(ListNode* node) {
    while (node != nullptr && node->element == nullptr) {
        node = node->next;
    }
    return node;
}

void unlink(CList* list, ListNode* node) {
    ListNode* previous = nullptr;
    for (ListNode* at = headOf(list); at != node; at = at->next) {
        previous = at;
    }
    zyn_support::unlinkAfter(list, previous, node);
}

CListCursor standOn(ListNode* node) {
    if (node != nullptr) {
        ++node->cursors;
    }
    return node;
}

void buryTombstone(const CList* list, ListNode* node) {
    std::lock_guard<std::mutex> lock(state().mutex);
    state().tombstones.emplace_back(list, node);
}

void freeTombstone(ListNode* node) {
    {
        std::lock_guard<std::mutex> lock(state().mutex);
        auto& all = state().tombstones;
        all.erase(std::remove_if(all.begin(), all.end(), [node](const auto& entry) { return entry.second == node; }),
                  all.end());
    }
    delete node;
}

void freeTombstonesOf(const CList* list) {
    std::lock_guard<std::mutex> lock(state().mutex);
    auto& all = state().tombstones;
    const auto kept =
        std::stable_partition(all.begin(), all.end(), [list](const auto& entry) { return entry.first != list; });
    for (auto at = kept; at != all.end(); ++at) {
        delete at->second;
    }
    all.erase(kept, all.end());
}

void leave(CList* list, ListNode* node) {
    --node->cursors;
    if (node->cursors == 0 && node->element == nullptr) {
        unlink(list, node);
        freeTombstone(node);
    }
}

}  // namespace

extern "C" uint32_t CList_Construct(CList* list) {
    platform_double::recordListCall(ListFunction::Construct);
    freeTombstonesOf(list);
    list->head = nullptr;
    list->tail = nullptr;
    list->count = 0;
    return 0;
}

extern "C" uint32_t CList_PushTail(CList* list, void* element) {
    platform_double::recordListCall(ListFunction::PushTail);
    zyn_support::linkAtTail(list, new ListNode{element, nullptr, 0});
    return 0;
}

extern "C" uint32_t CList_Remove(CList* list, void* element) {
    platform_double::recordListCall(ListFunction::Remove);
    for (auto* node = headOf(list); node != nullptr && element != nullptr; node = node->next) {
        if (node->element != element) {
            continue;
        }
        --list->count;
        if (node->cursors > 0) {
            node->element = nullptr;
            buryTombstone(list, node);
        } else {
            unlink(list, node);
            delete node;
        }
        return 0;
    }
    std::lock_guard<std::mutex> lock(state().mutex);
    return state().missingRemoveResult;
}

extern "C" uint32_t CList_IsEmpty(CList* list) {
    platform_double::recordListCall(ListFunction::IsEmpty);
    return list->count == 0 ? 1u : 0u;
}

extern "C" uint32_t CList_StartIterationFromHead(CList* list, CListCursor* cursor) {
    platform_double::recordListCall(ListFunction::StartIterationFromHead);
    *cursor = standOn(firstLiveFrom(headOf(list)));
    return *cursor == nullptr ? CLIST_END_OF_LIST : 0u;
}

extern "C" uint32_t CList_GetNext(CList* list, void** element, CListCursor* cursor) {
    platform_double::recordListCall(ListFunction::GetNext);
    bool deliverNull = false;
    {
        auto& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        if (s.getNextNullCountdown > 0) {
            deliverNull = --s.getNextNullCountdown == 0;
        }
    }
    *element = nullptr;
    auto* const standing = static_cast<ListNode*>(*cursor);
    if (deliverNull) {
        // The failure ends the iteration, so its cursor keeps no node.
        if (standing != nullptr) {
            leave(list, standing);
        }
        *cursor = nullptr;
        return kScriptedGetNextFailure;
    }
    if (standing == nullptr) {
        return CLIST_END_OF_LIST;
    }
    ListNode* const delivered = firstLiveFrom(standing);
    leave(list, standing);
    if (delivered == nullptr) {
        *cursor = nullptr;
        return CLIST_END_OF_LIST;
    }
    *element = delivered->element;
    *cursor = standOn(firstLiveFrom(delivered->next));
    return *cursor == nullptr ? CLIST_END_OF_LIST : 0u;
}

namespace os_extension {
namespace thread_utilities {

int setScheduling(std::thread& thread, int policy, int priority) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.schedulingCalls.push_back(platform_double::SchedulingCall{thread.native_handle(), policy, priority});
    return s.setSchedulingResult;
}

int setName(std::thread& thread, const std::string& name) {
    int result = 0;
    {
        auto& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        s.namingCalls.push_back(platform_double::NamingCall{thread.native_handle(), name});
        result = s.setNameResult;
    }
    if (result == 0) {
        pthread_setname_np(thread.native_handle(), name.c_str());
    }
    return result;
}

}  // namespace thread_utilities
}  // namespace os_extension
