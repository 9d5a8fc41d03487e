#include "HandlerCheck.h"

#include <algorithm>

namespace tickmon {

uint64_t expectedCalls(uint64_t passes, uint32_t interval) {
    const uint64_t n = interval == 0 ? 1 : interval;
    return passes / n + (passes % n == 0 ? 0 : 1);
}

std::vector<HandlerVerdict> checkHandlers(uint64_t passes, const std::vector<HandlerTally>& tallies) {
    std::vector<HandlerVerdict> verdicts;
    verdicts.reserve(tallies.size());
    for (const HandlerTally& tally : tallies) {
        HandlerVerdict verdict;
        verdict.name = tally.name;
        verdict.interval = tally.interval;
        verdict.calls = tally.calls;
        verdict.expected = expectedCalls(passes, tally.interval);
        verdict.ok = verdict.calls == verdict.expected;
        verdicts.push_back(verdict);
    }
    return verdicts;
}

bool allHandlersOk(const std::vector<HandlerVerdict>& verdicts) {
    return std::all_of(verdicts.begin(), verdicts.end(), [](const HandlerVerdict& v) { return v.ok; });
}

}  // namespace tickmon
