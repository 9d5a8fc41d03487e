// The live status line on stderr while the monitor runs.
#pragma once

#include "LiveStatus.h"

namespace tickmon {

/// Refreshed in place on a terminal, one plain line at a time otherwise;
/// prints nothing when not enabled (--quiet).
class StatusPrinter {
public:
    explicit StatusPrinter(bool enabled);

    void print(const StatusFigures& figures);

    /// The last line, with the figures of the report, left standing.
    void finish(const StatusFigures& figures);

private:
    bool active;
    bool terminal;
};

}  // namespace tickmon
