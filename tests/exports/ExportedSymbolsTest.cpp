// The dynamic symbol table of libZynTickScheduler.so is exactly the library's
// external interface: clients and the platform link against these names, and
// nothing else may leak (no standard-library instantiations, no module
// internals), or a later release could not change it without breaking them.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "ElfDynamicSymbols.h"

namespace {

using elf_inspection::demangle;
using elf_inspection::SharedObject;
using elf_inspection::Symbol;

const std::string kLibrary = ZYN_TS_SHARED_LIBRARY_PATH;
const std::string kAbiVersion = ZYN_TS_ABI_VERSION;
const std::string kVersionNode = "ZYN_TICK_SCHEDULER_" + kAbiVersion;
/// The node of the additions of the first minor version; it inherits
/// kVersionNode, which stays as it was released.
const std::string kGridVersionNode = kVersionNode + ".1";
/// The node of the handler statistics; it inherits kGridVersionNode.
const std::string kStatisticsVersionNode = kVersionNode + ".2";
/// The node of the precision wake; it inherits kStatisticsVersionNode.
const std::string kWakeVersionNode = kVersionNode + ".3";
/// The node of the fast scheduler's oscillator access; it inherits
/// kWakeVersionNode.
const std::string kFastOscillatorVersionNode = kVersionNode + ".4";
const std::string kEventCaptureVersionNode = kVersionNode + ".5";

const SharedObject& library() {
    static const SharedObject object = elf_inspection::readSharedObject(kLibrary);
    return object;
}

// ---- the external interface, by mangled name --------------------------------

const std::set<std::string>& cFunctions() {
    static const std::set<std::string> names = {
        "CTickScheduler_Initialize",
        "CTickScheduler_Uninitialize",
        "CTickScheduler_RegisterTickHandler",
        "CTickScheduler_UnregisterTickHandler",
        "CTickScheduler_EnableTickHandler",
        "CTickScheduler_DisableTickHandler",
        "CTickScheduler_Freeze",
        "CTickScheduler_Unfreeze",
        "CTickScheduler_SetTickPriority",
        "CTickScheduler_SetStartOffset",
        "CTickScheduler_AddGroup",
        "CTickScheduler_RemoveGroup",
        "CTickScheduler_EnableTickGroup",
        "CTickScheduler_DisableTickGroup",
        "CTickSchedulerFast_Initialize",
        "CTickSchedulerFast_Uninitialize",
    };
    return names;
}

/// The functions of one addition since the first release and the version
/// node they are bound to.
struct AddedNode {
    std::string node;
    std::set<std::string> functions;
};

/// The additions, each under a node of its own.
const std::vector<AddedNode>& addedNodes() {
    static const std::vector<AddedNode> added = {
        // The tick grid queries.
        {kGridVersionNode, {"CTickScheduler_GetTickGrid", "CTickSchedulerFast_GetTickGrid"}},
        // The handler statistics switches and queries.
        {kStatisticsVersionNode,
         {"CTickScheduler_EnableStatistics", "CTickScheduler_DisableStatistics", "CTickScheduler_ResetStatistics",
          "CTickScheduler_GetHandlerStatistics", "CTickScheduler_GetSchedulerStatistics",
          "CTickSchedulerFast_EnableStatistics", "CTickSchedulerFast_DisableStatistics",
          "CTickSchedulerFast_ResetStatistics", "CTickSchedulerFast_GetHandlerStatistics",
          "CTickSchedulerFast_GetSchedulerStatistics"}},
        // The precision-wake switches and queries.
        {kWakeVersionNode,
         {"CTickScheduler_SetWakeLeadOff", "CTickScheduler_SetWakeLeadFixed", "CTickScheduler_SetWakeLeadAdaptive",
          "CTickScheduler_GetPrecisionWake", "CTickScheduler_ResetPrecisionWake", "CTickSchedulerFast_SetWakeLeadOff",
          "CTickSchedulerFast_SetWakeLeadFixed", "CTickSchedulerFast_SetWakeLeadAdaptive",
          "CTickSchedulerFast_GetPrecisionWake", "CTickSchedulerFast_ResetPrecisionWake"}},
        // The fast scheduler's oscillator access.
        {kFastOscillatorVersionNode, {"CTickSchedulerFast_GetTickOscillator"}},
        // The event capture.
        {kEventCaptureVersionNode,
         {"CTickScheduler_StartEventCapture", "CTickScheduler_StopEventCapture", "CTickScheduler_ReadEvents",
          "CTickSchedulerFast_StartEventCapture", "CTickSchedulerFast_StopEventCapture",
          "CTickSchedulerFast_ReadEvents"}},
    };
    return added;
}

const std::set<std::string>& tickOscillatorSymbols() {
    static const std::set<std::string> names = {
        "_ZN14TickOscillatorC1Ev",                                      // TickOscillator()
        "_ZN14TickOscillatorC2Ev",                                      //
        "_ZN14TickOscillatorD0Ev",                                      // ~TickOscillator()
        "_ZN14TickOscillatorD1Ev",                                      //
        "_ZN14TickOscillatorD2Ev",                                      //
        "_ZN14TickOscillator10initializeE10ETickDelay13ETickPriority",  // initialize(ETickDelay, ETickPriority)
        "_ZN14TickOscillator5startEv",                                  // start()
        "_ZN14TickOscillator4stopEv",                                   // stop()
        "_ZN14TickOscillator6freezeEv",                                 // freeze()
        "_ZN14TickOscillator8unfreezeEv",                               // unfreeze()
        "_ZN14TickOscillator14registerOnTickEP13ITickReceiver",         // registerOnTick(ITickReceiver*)
        "_ZN14TickOscillator3runEv",                                    // run()
        "_ZN14TickOscillator8timeDiffEP8timespecS1_S1_",                // timeDiff(timespec*, timespec*, timespec*)
        "_ZN14TickOscillator19tickCompensation6MSEP8timespec",          // tickCompensation6MS(timespec*)
        "_ZN14TickOscillator19tickCompensation1MSEP8timespec",          // tickCompensation1MS(timespec*)
        "_ZN14TickOscillator20sleepToNextGridPointERK8timespecj",       // sleepToNextGridPoint(timespec&, unsigned)
        "_ZTV14TickOscillator",                                         // vtable
        "_ZTI14TickOscillator",                                         // typeinfo
        "_ZTS14TickOscillator",                                         // typeinfo name
    };
    return names;
}

/// An interface class with a virtual base: both constructor and all three
/// destructor variants, the vtable, the VTT and the type information.
std::set<std::string> interfaceClassSymbols(const std::string& lengthAndName) {
    return {"_ZN" + lengthAndName + "C1Ev", "_ZN" + lengthAndName + "C2Ev", "_ZN" + lengthAndName + "D0Ev",
            "_ZN" + lengthAndName + "D1Ev", "_ZN" + lengthAndName + "D2Ev", "_ZTV" + lengthAndName,
            "_ZTT" + lengthAndName,         "_ZTI" + lengthAndName,         "_ZTS" + lengthAndName};
}

/// IInterface comes from the platform's header with an inline destructor:
/// its vtable and type information are part of the interface; which
/// destructor variants the compiler emits out of line depends on inlining, so
/// they are allowed but not required.
const std::set<std::string>& iInterfaceRequired() {
    static const std::set<std::string> names = {"_ZTV10IInterface", "_ZTI10IInterface", "_ZTS10IInterface"};
    return names;
}

const std::set<std::string>& iInterfaceAllowed() {
    static const std::set<std::string> names = {"_ZN10IInterfaceD0Ev", "_ZN10IInterfaceD1Ev", "_ZN10IInterfaceD2Ev"};
    return names;
}

std::set<std::string> requiredExports() {
    std::set<std::string> names = cFunctions();
    for (const AddedNode& addition : addedNodes()) {
        names.insert(addition.functions.begin(), addition.functions.end());
    }
    names.insert("_Z33CTickScheduler_WaitForTickAndLockv");  // CTickScheduler_WaitForTickAndLock()
    names.insert("tsTrace");
    names.insert(tickOscillatorSymbols().begin(), tickOscillatorSymbols().end());
    for (const std::string& cls : {std::string("14ITickScheduler"), std::string("18ITickSchedulerFast")}) {
        const std::set<std::string> members = interfaceClassSymbols(cls);
        names.insert(members.begin(), members.end());
    }
    names.insert(iInterfaceRequired().begin(), iInterfaceRequired().end());
    return names;
}

/// The defined, globally visible dynamic symbols, without the version nodes.
std::set<std::string> exportedNames() {
    std::set<std::string> names;
    const std::vector<std::string>& nodes = library().versionNodes;
    for (const Symbol& symbol : library().dynamicSymbols) {
        if (symbol.defined && symbol.global && std::find(nodes.begin(), nodes.end(), symbol.name) == nodes.end()) {
            names.insert(symbol.name);
        }
    }
    return names;
}

std::string listing(const std::set<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += "\n  " + name + "   (" + demangle(name) + ")";
    }
    return text;
}

std::set<std::string> missingFrom(const std::set<std::string>& wanted, const std::set<std::string>& present) {
    std::set<std::string> missing;
    std::set_difference(wanted.begin(), wanted.end(), present.begin(), present.end(),
                        std::inserter(missing, missing.end()));
    return missing;
}

// ---- tests ------------------------------------------------------------------

TEST(SharedLibrary, SonameCarriesTheAbiMajorVersion) {
    EXPECT_EQ("libZynTickScheduler.so." + kAbiVersion, library().soname);
    EXPECT_EQ("libZynTickScheduler.so.1", library().soname) << "the first ABI is major version 1";
}

TEST(SharedLibrary, DefinesTheAbiVersionNodeAndOneNodePerAddition) {
    EXPECT_EQ((std::vector<std::string>{kVersionNode, kGridVersionNode, kStatisticsVersionNode, kWakeVersionNode,
                                        kFastOscillatorVersionNode, kEventCaptureVersionNode}),
              library().versionNodes);
}

TEST(SharedLibrary, EachAdditionIsBoundToItsOwnNodeAndEverythingElseToTheAbiNode) {
    const std::vector<std::string>& nodes = library().versionNodes;
    const std::vector<AddedNode>& added = addedNodes();
    std::vector<size_t> bound(added.size(), 0);
    for (const Symbol& symbol : library().dynamicSymbols) {
        const bool isNode = std::find(nodes.begin(), nodes.end(), symbol.name) != nodes.end();
        if (!symbol.defined || !symbol.global || isNode) {
            continue;
        }
        std::string expectedNode = kVersionNode;
        for (size_t i = 0; i < added.size(); ++i) {
            if (added[i].functions.count(symbol.name) != 0) {
                expectedNode = added[i].node;
                ++bound[i];
            }
        }
        EXPECT_EQ(expectedNode, symbol.version) << demangle(symbol.name);
    }
    for (size_t i = 0; i < added.size(); ++i) {
        EXPECT_EQ(added[i].functions.size(), bound[i]) << added[i].node;
    }
}

TEST(ExportedSymbols, TickOscillatorIsExportedWithItsTypeInformation) {
    const std::set<std::string> missing = missingFrom(tickOscillatorSymbols(), exportedNames());
    EXPECT_TRUE(missing.empty()) << "missing:" << listing(missing);
}

TEST(ExportedSymbols, NothingButTheExternalInterfaceIsExported) {
    const std::set<std::string> required = requiredExports();
    std::set<std::string> unexpected;
    for (const std::string& name : exportedNames()) {
        if (required.count(name) == 0 && iInterfaceAllowed().count(name) == 0) {
            unexpected.insert(name);
        }
    }
    EXPECT_TRUE(unexpected.empty()) << "exported beyond the external interface:" << listing(unexpected);
}

TEST(ExportedSymbols, EveryExternalInterfaceSymbolIsExported) {
    const std::set<std::string> missing = missingFrom(requiredExports(), exportedNames());
    EXPECT_TRUE(missing.empty()) << "missing from the dynamic symbol table:" << listing(missing);
}

TEST(ExportedSymbols, ModuleInternalsStayHidden) {
    const std::set<std::string> exported = exportedNames();
    for (const char* internal :
         {"CTickScheduler_OnTick", "CTickScheduler_OnPhaseActivation", "CTickSchedulerFast_OnTick",
          "CTickSchedulerFast_OnPhaseActivation", "CTickSchedulerFast_RegisterTickHandler"}) {
        EXPECT_EQ(0u, exported.count(internal)) << internal;
    }
    for (const std::string& name : exported) {
        EXPECT_EQ(std::string::npos, demangle(name).find("std::"))
            << "standard-library symbol exported: " << demangle(name);
    }
}

// ---- the platform's symbols -------------------------------------------------

const std::vector<std::string>& platformPrefixes() {
    static const std::vector<std::string> prefixes = {
        "CModuleManager_", "CList_", "KivTrace::", "InterfaceBroker::", "os_extension::thread_utilities::"};
    return prefixes;
}

bool isPlatformSymbol(const std::string& name) {
    const std::string readable = demangle(name);
    for (const std::string& prefix : platformPrefixes()) {
        if (readable.compare(0, prefix.size(), prefix) == 0) {
            return true;
        }
    }
    return false;
}

TEST(PlatformSymbols, AreNeverDefinedInTheLibrary) {
    for (const std::vector<Symbol>* table : {&library().dynamicSymbols, &library().allSymbols}) {
        for (const Symbol& symbol : *table) {
            if (symbol.defined && isPlatformSymbol(symbol.name)) {
                ADD_FAILURE() << "the library defines the platform's " << demangle(symbol.name);
            }
        }
    }
}

TEST(PlatformSymbols, EveryPlatformCallIsLeftUndefinedForTheHostingProcess) {
    // Demangled up to the opening parenthesis, with how many overloads.
    const std::vector<std::pair<std::string, size_t>> expected = {
        {"CModuleManager_RegisterModule", 1},
        {"CModuleManager_RegisterCallback", 1},
        {"CList_Construct", 1},
        {"CList_PushTail", 1},
        {"CList_Remove", 1},
        {"CList_IsEmpty", 1},
        {"CList_StartIterationFromHead", 1},
        {"CList_GetNext", 1},
        {"KivTrace::KivTrace(", 1},
        {"KivTrace::~KivTrace(", 1},
        {"KivTrace::isEnabled(", 1},
        {"KivTrace::logMsg(", 1},
        {"KivTrace::logEnterMsg(", 2},
        {"InterfaceBroker::getInstance(", 1},
        {"InterfaceBroker::registerInterface(", 1},
        {"InterfaceBroker::unregisterInterface(", 1},
        {"os_extension::thread_utilities::setScheduling(", 1},
        {"os_extension::thread_utilities::setName(", 1},
    };
    for (const auto& [name, overloads] : expected) {
        size_t undefined = 0;
        for (const Symbol& symbol : library().dynamicSymbols) {
            const std::string readable = demangle(symbol.name);
            const bool matches = name.back() == '(' ? readable.compare(0, name.size(), name) == 0 : readable == name;
            undefined += (matches && !symbol.defined) ? 1 : 0;
        }
        EXPECT_EQ(overloads, undefined) << name;
    }
}

}  // namespace
