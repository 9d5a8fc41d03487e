// The host platform's own trace object ("ZYN.HOST") and its trace sites: the
// level test first, the text built only when the level is enabled, errno kept.
#pragma once

#include <cerrno>
#include <sstream>
#include <string>

#include "KivTrace.h"

namespace platform_host::detail {

/// Never destroyed: threads that end during process exit may still trace.
KivTrace& hostTrace();

template <typename BuildText>
void traceHostMessage(KivTraceLevel level, const KivTraceHeader& header, BuildText&& build) {
    KivTrace& trace = hostTrace();
    if (!trace.isEnabled(level)) {
        return;
    }
    const int savedErrno = errno;
    std::ostringstream text;
    build(text);
    trace.logMsg(level, header, text.str());
    errno = savedErrno;
}

}  // namespace platform_host::detail

#define ZYN_HOST_TRACE(level, function, streamed)                                                                     \
    do {                                                                                                              \
        static const KivTraceHeader zynHostHeader{__FILE__, __LINE__, function};                                      \
        ::platform_host::detail::traceHostMessage(level, zynHostHeader, [&](std::ostream& out) { out << streamed; }); \
    } while (false)
