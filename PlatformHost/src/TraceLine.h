// The text of one trace line, without its newline.
//
//   <seconds>.<microseconds> <tid> <module> L<level> [<file>:<line> ]<function>: <text>
//   <seconds>.<microseconds> <tid> <module> L<level> [<file>:<line> ]-> <function>[: <text>]
//
// The timestamp is CLOCK_MONOTONIC, the thread id the kernel's (as shown in
// /proc and by top -H). The second form is a function-entry record. The
// header option decides the header: KIV_TRACE_HDR_FILE_LINE adds the source
// position, KIV_TRACE_HDR_FUNCTION the function name of a message; an entry
// record always names its function. Line breaks inside a text are written as
// "\n" so that one message stays one line.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>

#include "KivTrace.h"

namespace platform_host::detail {

struct TraceLineFields {
    timespec timestamp;
    pid_t threadId;
    const std::string* moduleName;
    uint32_t level;
    uint32_t headerOption;
    const KivTraceHeader* header;
    const std::string* text;  ///< null: an entry record without text
    bool entry;
};

std::string formatTraceLine(const TraceLineFields& fields);

}  // namespace platform_host::detail
