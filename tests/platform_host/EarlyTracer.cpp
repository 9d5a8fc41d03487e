// A library that traces from its static constructor, built without a link to
// the platform library (like libZynTickScheduler). The load-order test makes
// the dynamic loader initialise it before the platform library.

#include <string>

#include "KivTrace.h"

namespace {

std::string* constructorOutcome() {
    static std::string outcome;
    return &outcome;
}

const KivTraceHeader kHeader{"tests/platform_host/EarlyTracer.cpp", 1, "earlyConstructor"};

KivTrace* earlyTrace() {
    static KivTrace trace("EARLY.TRACER", KIV_TRACE_ERROR, KIV_TRACE_HDR_FUNCTION);
    return &trace;
}

struct TracesAtLoad {
    TracesAtLoad() {
        KivTrace* trace = earlyTrace();
        // KIV_TRACE of the test gives this module level 6.
        *constructorOutcome() = trace->isEnabled(KIV_TRACE_ENTER) ? "level from KIV_TRACE" : "constructor level";
        trace->logEnterMsg(KIV_TRACE_ENTER, kHeader, "traced while the library loads");
    }
};

const TracesAtLoad tracesAtLoad;

}  // namespace

__attribute__((visibility("default"))) const char* earlyTracerConstructorOutcome() {
    return constructorOutcome()->c_str();
}

__attribute__((visibility("default"))) KivTrace& earlyTracerTrace() { return *earlyTrace(); }
