// The scheduler's precision wake as the monitor reports it: the setting it
// ran with, the lead the oscillator used, and each tick's lateness split
// into the kernel's wake-up and the library's delivery, with the CPU the
// spin cost. Pure formatting: the figures come from the library's query.
#pragma once

#include <string>

#include "JsonRecord.h"
#include "TickPrecisionWake.h"

namespace tickmon {

struct WakeReport {
    /// The --wake-lead setting: "off", "auto" or a time.
    std::string setting = "off";
    /// False when the library's query failed (figures all zero).
    bool read = false;
    STickPrecisionWake figures{};
};

/// The report's section, after the latency section whose p99 is
/// `handlerP99Ns` (the lateness a handler sees).
std::string formatWake(const WakeReport& wake, int64_t handlerP99Ns);

Json wakeJson(const WakeReport& wake);

/// For the plot's title: "relative sleep" when off, else the setting and the
/// lead used.
std::string wakeTitle(const WakeReport& wake);

}  // namespace tickmon
