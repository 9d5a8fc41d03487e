// The field self-test: was every handler called as often as its interval
// requires?
//
// All handlers are registered before the oscillator starts, each with its
// phase counter at 0, and the probe (interval 1) runs on every pass. A
// handler with interval n is then due on passes 1, n + 1, 2n + 1, ..., so
// after P passes it must have been called ceil(P / n) times; interval 0
// behaves like 1.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tickmon {

/// The calls due after `passes` tick passes for a handler of `interval`.
uint64_t expectedCalls(uint64_t passes, uint32_t interval);

struct HandlerTally {
    std::string name;
    uint32_t interval = 1;
    uint64_t calls = 0;
};

struct HandlerVerdict {
    std::string name;
    uint32_t interval = 1;
    uint64_t calls = 0;
    uint64_t expected = 0;
    bool ok = false;
};

/// Compares each tally with the calls due after `passes` passes.
std::vector<HandlerVerdict> checkHandlers(uint64_t passes, const std::vector<HandlerTally>& tallies);

/// True when every verdict is ok (also for none).
bool allHandlersOk(const std::vector<HandlerVerdict>& verdicts);

}  // namespace tickmon
