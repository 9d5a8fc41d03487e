#include "SchedulerSession.h"

#include "CTickScheduler.h"
#include "CTickSchedulerFast.h"
#include "InterfaceBroker.h"
#include "PlatformHost/ModuleManagerHost.h"
#include "TickGrid.h"
#include "TickModuleIdentity.h"
#include "TickResultCodes.h"

namespace tickmon {
namespace {

bool initializeOk(uint32_t result) { return !TickResult::isError(result); }

std::string failure(const std::string& step, uint32_t result) {
    return step + " failed with result " + std::to_string(result);
}

}  // namespace

bool SchedulerSession::initialize(ETickPriority priority, std::string& error) {
    // The scheduler reads the priority once, at Initialize; it stays here for
    // the life of the session all the same.
    storedPriority = priority;
    const uint32_t scheduler = CTickScheduler_Initialize(&storedPriority);
    if (!initializeOk(scheduler)) {
        error = failure("CTickScheduler_Initialize", scheduler);
        return false;
    }
    const uint32_t fast = CTickSchedulerFast_Initialize();
    if (!initializeOk(fast)) {
        error = failure("CTickSchedulerFast_Initialize", fast);
        return false;
    }
    IInterface* found = InterfaceBroker::getInstance()->getInterface("ITickScheduler");
    interface = dynamic_cast<ITickScheduler*>(found);
    if (interface == nullptr) {
        error = "the interface broker has no \"ITickScheduler\" object";
        return false;
    }
    return true;
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

bool SchedulerSession::publishedGrid(PublishedGrid& grid) const {
    STickGrid record{};
    record.size = sizeof record;
    if (CTickScheduler_GetTickGrid(&record) != TickResult::Success || record.running != 1) {
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
