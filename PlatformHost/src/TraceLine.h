// The text of one trace line, without its newline: a message, or a
// function-entry record (the second form), which always names its function.
//
//   <seconds>.<microseconds> <tid> <module> L<level> [<file>:<line> ]<function>: <text>
//   <seconds>.<microseconds> <tid> <module> L<level> [<file>:<line> ]-> <function>[: <text>]
//
// KIV_TRACE_HDR_FILE_LINE adds the source position, KIV_TRACE_HDR_FUNCTION the
// function name of a message. Line breaks inside a text are written as "\n"
// so that one message stays one line.
#pragma once

#include <sys/types.h>

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
