#include "SchedulerSession.h"

#include "CTickScheduler.h"
#include "CTickSchedulerFast.h"
#include "InterfaceBroker.h"
#include "PlatformHost/ModuleManagerHost.h"
#include "TickFastOscillator.h"
#include "TickModuleIdentity.h"
#include "TickResultCodes.h"

namespace tickmon {
namespace {

bool initializeOk(uint32_t result) { return !TickResult::isError(result); }

std::string failure(const std::string& step, uint32_t result) {
    return step + " failed with result " + std::to_string(result);
}

const SchedulerEntryPoints kScheduler{"CTickScheduler",
                                      "zyn-ts-osc6",
                                      6000000,
                                      &CTickScheduler_GetTickGrid,
                                      &CTickScheduler_EnableStatistics,
                                      &CTickScheduler_ResetStatistics,
                                      &CTickScheduler_GetHandlerStatistics,
                                      &CTickScheduler_GetSchedulerStatistics,
                                      &CTickScheduler_SetWakeLeadOff,
                                      &CTickScheduler_SetWakeLeadFixed,
                                      &CTickScheduler_SetWakeLeadAdaptive,
                                      &CTickScheduler_GetPrecisionWake,
                                      &CTickScheduler_StartEventCapture,
                                      &CTickScheduler_StopEventCapture,
                                      &CTickScheduler_ReadEvents};

const SchedulerEntryPoints kFast{"CTickSchedulerFast",
                                 "zyn-ts-osc1",
                                 1000000,
                                 &CTickSchedulerFast_GetTickGrid,
                                 &CTickSchedulerFast_EnableStatistics,
                                 &CTickSchedulerFast_ResetStatistics,
                                 &CTickSchedulerFast_GetHandlerStatistics,
                                 &CTickSchedulerFast_GetSchedulerStatistics,
                                 &CTickSchedulerFast_SetWakeLeadOff,
                                 &CTickSchedulerFast_SetWakeLeadFixed,
                                 &CTickSchedulerFast_SetWakeLeadAdaptive,
                                 &CTickSchedulerFast_GetPrecisionWake,
                                 &CTickSchedulerFast_StartEventCapture,
                                 &CTickSchedulerFast_StopEventCapture,
                                 &CTickSchedulerFast_ReadEvents};

template <typename Interface>
Interface* brokerInterface(const char* name, std::string& error) {
    auto* const found = dynamic_cast<Interface*>(InterfaceBroker::getInstance()->getInterface(name));
    if (found == nullptr) {
        error = std::string("the interface broker has no \"") + name + "\" object";
    }
    return found;
}

}  // namespace

const SchedulerEntryPoints& entryPointsOf(MonitoredGrid grid) {
    return grid == MonitoredGrid::Fast ? kFast : kScheduler;
}

bool SchedulerSession::initialize(ETickPriority priority, std::string& error) {
    if (measured == MonitoredGrid::Scheduler) {
        // The scheduler reads the priority once, at Initialize; it stays here
        // for the life of the session all the same.
        storedPriority = priority;
        const uint32_t result = CTickScheduler_Initialize(&storedPriority);
        if (!initializeOk(result)) {
            error = failure("CTickScheduler_Initialize", result);
            return false;
        }
    }
    const uint32_t fastResult = CTickSchedulerFast_Initialize();
    if (!initializeOk(fastResult)) {
        error = failure("CTickSchedulerFast_Initialize", fastResult);
        return false;
    }
    if (measured == MonitoredGrid::Fast) {
        fast = brokerInterface<ITickSchedulerFast>("ITickSchedulerFast", error);
        return fast != nullptr;
    }
    scheduler = brokerInterface<ITickScheduler>("ITickScheduler", error);
    return scheduler != nullptr;
}

uint32_t SchedulerSession::registerHandler(STickHandler** handle, const ITickReceiver* receiver, uint32_t interval,
                                           const char* name) {
    return fast != nullptr ? fast->RegisterTickHandler(handle, receiver, name)
                           : scheduler->RegisterTickHandler(handle, receiver, interval, name);
}

uint32_t SchedulerSession::unregisterHandler(STickHandler** handle) {
    return fast != nullptr ? fast->UnregisterTickHandler(handle) : scheduler->UnregisterTickHandler(handle);
}

uint32_t SchedulerSession::enableHandler(STickHandler* handle) {
    return fast != nullptr ? fast->EnableTickHandler(handle) : scheduler->EnableTickHandler(handle);
}

uint32_t SchedulerSession::disableHandler(STickHandler* handle) {
    return fast != nullptr ? fast->DisableTickHandler(handle) : scheduler->DisableTickHandler(handle);
}

bool SchedulerSession::runPhase(uint32_t phase, std::string& error) {
    for (const platform_host::PhaseCallResult& call : platform_host::runPhase(phase)) {
        if (TickResult::isError(call.result)) {
            error = "phase " + std::to_string(phase) + ": " + call.callbackName + " returned " +
                    std::to_string(call.result);
            return false;
        }
    }
    return true;
}

bool SchedulerSession::prepareTicks(std::string& error) {
    return runPhase(TickModule::Phase::Configure, error) && runPhase(TickModule::Phase::Idle, error);
}

bool SchedulerSession::startTicks(std::string& error) {
    if (!runPhase(TickModule::Phase::StartTicks, error)) {
        return false;
    }
    if (measured != MonitoredGrid::Fast) {
        return true;
    }
    const uint32_t started = CTickSchedulerFast_GetTickOscillator()->start();
    if (TickResult::isError(started)) {
        error = failure("starting CTickSchedulerFast's oscillator", started);
        return false;
    }
    return true;
}

void SchedulerSession::stopPasses() {
    if (fast != nullptr) {
        CTickSchedulerFast_GetTickOscillator()->stop();
    } else if (scheduler != nullptr) {
        scheduler->Freeze();
    }
}

bool SchedulerSession::publishedGrid(PublishedGrid& grid) const {
    STickGrid record{};
    record.size = sizeof record;
    if (library.getTickGrid(&record) != TickResult::Success || record.running != 1) {
        return false;
    }
    grid.originNs = record.originNs;
    grid.periodNs = record.periodNs;
    grid.generation = record.generation;
    return true;
}

void SchedulerSession::shutDown() {
    if (shutDownDone) {
        return;
    }
    shutDownDone = true;
    platform_host::runPhase(TickModule::Phase::ShutDown);
}

}  // namespace tickmon
