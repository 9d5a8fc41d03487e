/// @file
/// Trace service binding.
#pragma once

#include <cstdint>
#include <string>

/// Trace levels: 1 errors and refused calls, 2 warnings and calls that find
/// nothing to do, 5 information and successful changes, 6 function entry,
/// 7 per-tick detail.
enum KivTraceLevel : uint32_t {
    KIV_TRACE_ERROR = 1,
    KIV_TRACE_WARNING = 2,
    KIV_TRACE_NOTICE = 3,
    KIV_TRACE_STATUS = 4,
    KIV_TRACE_INFO = 5,
    KIV_TRACE_ENTER = 6,
    KIV_TRACE_DETAIL = 7,
};

/// What a trace line's header shows, as bit flags.
enum KivTraceHdrOption : uint32_t {
    KIV_TRACE_HDR_NONE = 0,
    KIV_TRACE_HDR_FILE_LINE = 1,
    KIV_TRACE_HDR_FUNCTION = 256,
};

/// Where a trace line comes from; one static record per trace site.
struct KivTraceHeader {
    const char* file;      ///< Source path, relative to the repository root.
    uint32_t line;         ///< Source line.
    const char* function;  ///< Function (or bare member) name.
};

/// A trace object: one per module, with its own run-time level.
class KivTrace {
public:
    /// A trace object for `moduleName`, writing levels up to `defaultLevel`
    /// until the platform sets another level, with the header parts of
    /// `headerOption`. May run in a static constructor.
    KivTrace(const char* moduleName, KivTraceLevel defaultLevel, KivTraceHdrOption headerOption);
    ~KivTrace();

    /// True when messages of `level` are written.
    bool isEnabled(KivTraceLevel level) const;

    /// Writes one message.
    void logMsg(KivTraceLevel level, const KivTraceHeader& header, const std::string& text);

    /// Writes a function-entry record.
    void logEnterMsg(KivTraceLevel level, const KivTraceHeader& header);

    /// Writes a function-entry record with a text.
    void logEnterMsg(KivTraceLevel level, const KivTraceHeader& header, const std::string& text);

private:
    void* impl;
};
