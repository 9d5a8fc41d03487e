// One monitor run: start the library, tick, report, shut down.
#pragma once

#include "MonitorOptions.h"

namespace tickmon {

/// Exit statuses of zyn-tickmon.
namespace exit_status {
constexpr int kPassed = 0;
/// A handler was called a wrong number of times, a tick came before its grid
/// point, a grid point got more than one tick, or the library did not start
/// (or published no grid): the field self-test failed.
constexpr int kSelfTestFailed = 1;
/// Bad usage, or an output file that cannot be written.
constexpr int kUsage = 2;
}  // namespace exit_status

/// Runs the monitor with `options`; returns the exit status.
int runMonitor(const MonitorOptions& options);

}  // namespace tickmon
