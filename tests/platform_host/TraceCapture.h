// Captures the trace lines written while it exists.
#pragma once

#include <string>
#include <vector>

#include "NonCopyable.h"
#include "PlatformHost/TraceHost.h"
#include "SynchronizedLog.h"

class TraceCapture : test_support::NonCopyable {
public:
    TraceCapture() {
        platform_host::setTraceSink([this](const std::string& line) { captured.append(line); });
    }
    ~TraceCapture() { platform_host::setTraceSink({}); }

    std::vector<std::string> lines() { return captured.snapshot(); }

private:
    test_support::SynchronizedLog<std::string> captured;
};
