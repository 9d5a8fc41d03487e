// The counts of one handler's statistics record as a single value, so that a
// test of either scheduler module compares them in one assertion and a
// failure shows them all.
#pragma once

#include <cstdint>
#include <ostream>
#include <tuple>

#include "TickStatistics.h"

namespace handler_figures {

struct Figures {
    uint64_t calls;
    int64_t totalNs;
    int64_t minNs;
    int64_t maxNs;
    int64_t lastNs;
    uint64_t overBudget;

    bool operator==(const Figures& other) const {
        return std::tie(calls, totalNs, minNs, maxNs, lastNs, overBudget) ==
               std::tie(other.calls, other.totalNs, other.minNs, other.maxNs, other.lastNs, other.overBudget);
    }
};

inline std::ostream& operator<<(std::ostream& out, const Figures& figures) {
    return out << "{calls " << figures.calls << ", total " << figures.totalNs << " ns, min " << figures.minNs
               << " ns, max " << figures.maxNs << " ns, last " << figures.lastNs << " ns, over budget "
               << figures.overBudget << "}";
}

inline Figures of(const STickHandlerStatistics& statistics) {
    return Figures{statistics.calls, statistics.totalNs, statistics.minNs,
                   statistics.maxNs, statistics.lastNs,  statistics.overBudget};
}

}  // namespace handler_figures
