// Captures the trace lines written while it exists.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "PlatformHost/TraceHost.h"

class TraceCapture {
public:
    TraceCapture() {
        platform_host::setTraceSink([this](const std::string& line) {
            const std::lock_guard<std::mutex> lock(mutex);
            captured.push_back(line);
        });
    }
    ~TraceCapture() { platform_host::setTraceSink({}); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    std::vector<std::string> lines() {
        const std::lock_guard<std::mutex> lock(mutex);
        return captured;
    }

private:
    std::mutex mutex;
    std::vector<std::string> captured;
};
