// One trace site: the level test, the text built only when the level is
// enabled, and the caller's errno kept intact.
//
//   ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_AddGroup", "Group ID out of bounds: " << id);
//   ZYN_TS_ENTER("start");
//   ZYN_TS_ENTER_TEXT("initialize", "eDelay=" << delay);
//
// Each site owns a static KivTraceHeader naming the source file (relative to
// the repository root: the build maps the source directory away), the line
// and the function.
#pragma once

#include <cerrno>
#include <cstdint>
#include <ostream>
#include <sstream>

#include "KivTrace.h"
#include "TickSchedulerTrace.h"

namespace zyn_ts {

/// Restores errno on scope exit, so that tracing never changes what the
/// caller sees in errno.
class ErrnoKeeper {
public:
    ErrnoKeeper() : saved(errno) {}
    ~ErrnoKeeper() { errno = saved; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    int saved;
};

template <typename BuildText>
inline std::string buildText(BuildText&& build) {
    std::ostringstream text;
    build(text);
    return text.str();
}

/// Writes a message at `level` when that level is enabled.
template <typename BuildText>
inline void traceMessage(KivTraceLevel level, const KivTraceHeader& header, BuildText&& build) {
    if (!tsTrace.isEnabled(level)) {
        return;
    }
    const ErrnoKeeper keepErrno;
    tsTrace.logMsg(level, header, buildText(build));
}

/// Writes a function-entry record at level 6 when that level is enabled.
inline void traceEnter(const KivTraceHeader& header) {
    if (!tsTrace.isEnabled(KIV_TRACE_ENTER)) {
        return;
    }
    const ErrnoKeeper keepErrno;
    tsTrace.logEnterMsg(KIV_TRACE_ENTER, header);
}

/// Writes a function-entry record with a text at level 6 when enabled.
template <typename BuildText>
inline void traceEnter(const KivTraceHeader& header, BuildText&& build) {
    if (!tsTrace.isEnabled(KIV_TRACE_ENTER)) {
        return;
    }
    const ErrnoKeeper keepErrno;
    tsTrace.logEnterMsg(KIV_TRACE_ENTER, header, buildText(build));
}

/// Streams a value as "0x" and exactly eight zero-padded lower-case hex digits.
struct Hex8 {
    uint32_t value;
};

inline std::ostream& operator<<(std::ostream& out, Hex8 hex) {
    static const char digits[] = "0123456789abcdef";
    char text[11] = {'0', 'x'};
    for (int i = 0; i < 8; ++i) {
        text[2 + i] = digits[(hex.value >> (28 - 4 * i)) & 0xFu];
    }
    text[10] = '\0';
    return out << text;
}

}  // namespace zyn_ts

#define ZYN_TS_SITE_HEADER(function) \
    static const KivTraceHeader zynTsSiteHeader { __FILE__, static_cast<uint32_t>(__LINE__), function }

#define ZYN_TS_TRACE(level, function, ...)                                                                          \
    do {                                                                                                            \
        ZYN_TS_SITE_HEADER(function);                                                                               \
        ::zyn_ts::traceMessage(level, zynTsSiteHeader, [&](std::ostream& zynTsText) { zynTsText << __VA_ARGS__; }); \
    } while (0)

#define ZYN_TS_ENTER(function)                 \
    do {                                       \
        ZYN_TS_SITE_HEADER(function);          \
        ::zyn_ts::traceEnter(zynTsSiteHeader); \
    } while (0)

#define ZYN_TS_ENTER_TEXT(function, ...)                                                                   \
    do {                                                                                                   \
        ZYN_TS_SITE_HEADER(function);                                                                      \
        ::zyn_ts::traceEnter(zynTsSiteHeader, [&](std::ostream& zynTsText) { zynTsText << __VA_ARGS__; }); \
    } while (0)
