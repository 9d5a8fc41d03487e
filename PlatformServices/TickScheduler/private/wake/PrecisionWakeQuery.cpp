// The exported precision-wake switches and queries of both modules. Each
// works on the precision wake in its own module's oscillator attachment;
// none locks, allocates or waits (see PrecisionWake.h).
#include "CTickSchedulerFastModule.h"
#include "CTickSchedulerModule.h"
#include "PrecisionWake.h"
#include "TickPrecisionWake.h"
#include "TickResultCodes.h"
#include "TraceSite.h"

namespace {

uint32_t copyFigures(const zyn_ts::PrecisionWake& wake, STickPrecisionWake* figures) {
    if (figures == nullptr || figures->size < sizeof(STickPrecisionWake)) {
        return TickResult::NullArgument;
    }
    wake.copyTo(*figures);
    return TickResult::Success;
}

zyn_ts::PrecisionWake& slowWake() { return tickScheduler.oscillatorAttachment.wake; }
zyn_ts::PrecisionWake& fastWake() { return tickSchedulerFastModule.oscillatorAttachment.wake; }

}  // namespace

extern "C" uint32_t CTickScheduler_SetWakeLeadOff(void) {
    slowWake().switchOff();
    ZYN_TS_TRACE(KIV_TRACE_INFO, "CTickScheduler_SetWakeLeadOff", "Precision wake off");
    return TickResult::Success;
}

extern "C" uint32_t CTickScheduler_SetWakeLeadFixed(int64_t leadNs) {
    if (!slowWake().switchFixed(leadNs)) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_SetWakeLeadFixed", "Lead out of range: " << leadNs << " ns");
        return TickResult::OutOfRange;
    }
    ZYN_TS_TRACE(KIV_TRACE_INFO, "CTickScheduler_SetWakeLeadFixed",
                 "Precision wake with a lead of " << leadNs << " ns");
    return TickResult::Success;
}

extern "C" uint32_t CTickScheduler_SetWakeLeadAdaptive(void) {
    slowWake().switchAdaptive();
    ZYN_TS_TRACE(KIV_TRACE_INFO, "CTickScheduler_SetWakeLeadAdaptive", "Precision wake with an adaptive lead");
    return TickResult::Success;
}

extern "C" uint32_t CTickScheduler_GetPrecisionWake(STickPrecisionWake* figures) {
    return copyFigures(slowWake(), figures);
}

extern "C" uint32_t CTickScheduler_ResetPrecisionWake(void) {
    slowWake().requestReset();
    return TickResult::Success;
}

extern "C" uint32_t CTickSchedulerFast_SetWakeLeadOff(void) {
    fastWake().switchOff();
    ZYN_TS_TRACE(KIV_TRACE_INFO, "CTickSchedulerFast_SetWakeLeadOff", "Precision wake off");
    return TickResult::Success;
}

extern "C" uint32_t CTickSchedulerFast_SetWakeLeadFixed(int64_t leadNs) {
    if (!fastWake().switchFixed(leadNs)) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickSchedulerFast_SetWakeLeadFixed", "Lead out of range: " << leadNs << " ns");
        return TickResult::OutOfRange;
    }
    ZYN_TS_TRACE(KIV_TRACE_INFO, "CTickSchedulerFast_SetWakeLeadFixed",
                 "Precision wake with a lead of " << leadNs << " ns");
    return TickResult::Success;
}

extern "C" uint32_t CTickSchedulerFast_SetWakeLeadAdaptive(void) {
    fastWake().switchAdaptive();
    ZYN_TS_TRACE(KIV_TRACE_INFO, "CTickSchedulerFast_SetWakeLeadAdaptive", "Precision wake with an adaptive lead");
    return TickResult::Success;
}

extern "C" uint32_t CTickSchedulerFast_GetPrecisionWake(STickPrecisionWake* figures) {
    return copyFigures(fastWake(), figures);
}

extern "C" uint32_t CTickSchedulerFast_ResetPrecisionWake(void) {
    fastWake().requestReset();
    return TickResult::Success;
}
