// The reference trace service: one KivTrace per module, a level per object.

#include "KivTrace.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "TraceLine.h"
#include "TraceRegistry.h"

namespace {

using platform_host::detail::TraceState;

const TraceState* stateOf(const void* impl) { return static_cast<const TraceState*>(impl); }

pid_t kernelThreadId() { return static_cast<pid_t>(::syscall(SYS_gettid)); }

// Formats and writes one record. Tracing must never fail the traced code: a
// record that cannot be built (out of memory) or that the sink throws on is
// dropped, and errno is what it was before.
void writeRecord(const TraceState& state, KivTraceLevel level, const KivTraceHeader& header, const std::string* text,
                 bool entry) noexcept {
    const int savedErrno = errno;
    try {
        platform_host::detail::TraceLineFields fields{};
        ::clock_gettime(CLOCK_MONOTONIC, &fields.timestamp);
        fields.threadId = kernelThreadId();
        fields.moduleName = &state.moduleName;
        fields.level = level;
        fields.headerOption = state.headerOption;
        fields.header = &header;
        fields.text = text;
        fields.entry = entry;
        platform_host::detail::emitTraceLine(platform_host::detail::formatTraceLine(fields));
    } catch (...) {
        // Dropped: see above.
    }
    errno = savedErrno;
}

}  // namespace

KivTrace::KivTrace(const char* moduleName, KivTraceLevel defaultLevel, KivTraceHdrOption headerOption)
    : impl(platform_host::detail::attachTraceObject(moduleName, defaultLevel, headerOption)) {}

KivTrace::~KivTrace() {
    platform_host::detail::detachTraceObject(static_cast<TraceState*>(impl));
    // A static trace object may still be asked by another library's static
    // destructor that runs later: with no state it reports every level
    // disabled. The store is volatile so that it is not dropped as a store to
    // an object whose lifetime ends.
    *static_cast<void* volatile*>(&impl) = nullptr;
}

bool KivTrace::isEnabled(KivTraceLevel level) const {
    const TraceState* state = stateOf(impl);
    return state != nullptr && level != 0 && level <= state->level.load(std::memory_order_relaxed);
}

void KivTrace::logMsg(KivTraceLevel level, const KivTraceHeader& header, const std::string& text) {
    if (isEnabled(level)) {
        writeRecord(*stateOf(impl), level, header, &text, false);
    }
}

void KivTrace::logEnterMsg(KivTraceLevel level, const KivTraceHeader& header) {
    if (isEnabled(level)) {
        writeRecord(*stateOf(impl), level, header, nullptr, true);
    }
}

void KivTrace::logEnterMsg(KivTraceLevel level, const KivTraceHeader& header, const std::string& text) {
    if (isEnabled(level)) {
        writeRecord(*stateOf(impl), level, header, &text, true);
    }
}
