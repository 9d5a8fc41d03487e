// Judging how punctual the oscillator was, against the reference sleeper
// measured in the same attempt, and deciding on several attempts together.
//
// Within one attempt the oscillator's typical and its late ticks (the median
// and the 90th percentile of their lateness) must come about as soon after
// their grid points as the reference's wake-ups, at the start of the run and
// at its end (no drift), and it may lose hardly more grid points than the
// reference's share of lost wake-ups (one in fifty more, at least one).
// "About as soon" is at most half as late again as the reference, with a
// small absolute allowance for the few instructions the loop runs between
// waking and calling its receiver: an oscillator that comes twice as late as
// a plain sleep fails.
//
// A host that stalls the machine for milliseconds spoils one attempt now and
// then, but not most of several; a real regression spoils most of them. So
// the test passes when a majority of the attempts pass, and fails with the
// figures of every attempt otherwise.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "GridAnalysis.h"
#include "GridOrigin.h"
#include "ReferenceSleeper.h"
#include "ZynSupport/MonotonicClock.h"

namespace oscillator_test {

/// Attempts made at most, and how many of them must pass.
constexpr int kAttempts = 5;
constexpr int kAttemptsToPass = 3;

/// How much later than the reference's the oscillator's typical tick may
/// come: half as late again, and never less than an allowance for what the
/// loop adds to a plain sleep (a clock reading, a division, the receiver's
/// call, run from caches that a longer sleep leaves colder). An oscillator
/// that comes twice as late as a plain sleep fails.
inline int64_t medianLatenessBound(int64_t referenceMedian, int64_t period) {
    const int64_t allowance = period >= 6 * zyn_support::kNanosecondsPerMillisecond ? 45000 : 10000;
    return std::max(referenceMedian + referenceMedian / 2, referenceMedian + allowance);
}

/// How much later than the reference's the oscillator's late ticks (the 90th
/// percentile) may come: far below a share of ticks that come most of a
/// period late, far above the spread a stall of the host gives one run.
inline int64_t latePercentileBound(int64_t reference90) {
    return std::max(reference90 + reference90 / 2, reference90 + 100000);
}

/// The complaint of one attempt; empty when it passed.
using Complaint = std::string;

/// The lateness of each tick on the grid through the earliest possible
/// origin: too late by at most the bracket's width.
inline std::vector<int64_t> latenessesOn(const std::vector<int64_t>& ticks, const GridOrigin& origin, int64_t period) {
    return latenesses(ticks, origin.earliest, period);
}

/// The share of the reference's grid points that passed without a wake-up.
inline double missedShare(const ReferenceRun& reference) {
    if (reference.gridPoints <= 0) {
        return 0.0;
    }
    const int64_t missed =
        std::max<int64_t>(0, reference.gridPoints - static_cast<int64_t>(reference.latenesses.size()));
    return static_cast<double>(missed) / static_cast<double>(reference.gridPoints);
}

/// The median and the 90th percentile of the ticks' lateness each within the
/// bound of the reference's figure of the same rank, and the median of the
/// last quarter of the run (drift) within the looser of the two. Appends
/// what broke to `complaint`.
inline void judgeLateness(const std::vector<int64_t>& late, int64_t originWidth, int64_t period,
                          const ReferenceRun& reference, std::ostringstream& complaint) {
    const int64_t medianBound = medianLatenessBound(median(reference.latenesses), period) + originWidth;
    const int64_t bound90 = latePercentileBound(percentile(reference.latenesses, 90)) + originWidth;
    const std::vector<int64_t> lastQuarter(late.end() - static_cast<std::ptrdiff_t>(late.size() / 4), late.end());
    if (median(late) > medianBound) {
        complaint << "median lateness " << median(late) << " ns > " << medianBound << " ns; ";
    }
    if (percentile(late, 90) > bound90) {
        complaint << "90th percentile of the lateness " << percentile(late, 90) << " ns > " << bound90 << " ns; ";
    }
    // A grid that drifts away grows later with every tick; a few ticks of a
    // short run spread too widely to hold them to the median's bound.
    if (median(lastQuarter) > bound90) {
        complaint << "median lateness of the last quarter " << median(lastQuarter) << " ns > " << bound90
                  << " ns (drift); ";
    }
}

/// The reference's figures, for the log and the complaints.
inline std::string referenceFigures(const ReferenceRun& reference) {
    std::ostringstream figures;
    figures << "reference median " << median(reference.latenesses) << " ns, 90th percentile "
            << percentile(reference.latenesses, 90) << " ns over " << reference.latenesses.size() << " wake-ups, "
            << (reference.gridPoints - static_cast<int64_t>(reference.latenesses.size())) << " of "
            << reference.gridPoints << " grid points lost";
    return figures.str();
}

/// The ticks come about as soon after their grid points as the reference's
/// wake-ups, to the end of the run (no drift), and the oscillator loses at
/// most the reference's share of its `gridPoints` plus one in fifty (at
/// least one): a run that drops one grid point in ten fails.
inline Complaint judgePunctuality(const std::vector<int64_t>& ticks, const GridOrigin& origin, int64_t period,
                                  int64_t gridPoints, const ReferenceRun& reference) {
    std::ostringstream complaint;
    if (ticks.size() < 8 || reference.latenesses.empty()) {
        complaint << "too few ticks (" << ticks.size() << ") to judge; ";
        return complaint.str();
    }
    const std::vector<int64_t> late = latenessesOn(ticks, origin, period);
    judgeLateness(late, origin.width(), period, reference, complaint);
    const int64_t missed = std::max<int64_t>(0, gridPoints - static_cast<int64_t>(ticks.size()));
    const double allowedMissed =
        missedShare(reference) * static_cast<double>(gridPoints) + std::max(1.0, static_cast<double>(gridPoints) / 50);
    if (static_cast<double>(missed) > allowedMissed) {
        complaint << missed << " of " << gridPoints << " grid points without a tick, " << allowedMissed << " allowed; ";
    }
    // Shown in the log whether or not the attempt passed, so that the margins
    // of passing runs can be read as well.
    std::cout << "[ FIGURES  ] median lateness " << median(late) << " ns, 90th percentile " << percentile(late, 90)
              << " ns, " << missed << " of " << gridPoints << " grid points lost; " << referenceFigures(reference)
              << std::endl;
    if (!complaint.str().empty()) {
        complaint << "(" << referenceFigures(reference) << ")";
    }
    return complaint.str();
}

/// What the attempts of one test showed.
struct AttemptsOutcome {
    bool punctual = false;  ///< a majority of the attempts passed, or an exact property failed
    std::string complaints;
};

/// Runs `attempt` until kAttemptsToPass attempts have passed or so many have
/// failed that they no longer can, and collects every complaint. An attempt
/// that breaks an exact property has failed the test already: no retry.
inline AttemptsOutcome decideOnSeveralAttempts(const std::function<Complaint(int attempt)>& attempt) {
    AttemptsOutcome outcome;
    std::ostringstream all;
    int passed = 0;
    int failed = 0;
    for (int i = 1; i <= kAttempts; ++i) {
        const Complaint complaint = attempt(i);
        if (::testing::Test::HasFailure()) {
            outcome.punctual = true;
            return outcome;
        }
        if (complaint.empty()) {
            ++passed;
        } else {
            ++failed;
            // Shown in the log, so that spoilt attempts can be counted.
            std::cout << "[ SPOILT   ] attempt " << i << " not punctual: " << complaint << std::endl;
            all << "\n  attempt " << i << ": " << complaint;
        }
        if (passed >= kAttemptsToPass) {
            outcome.punctual = true;
            return outcome;
        }
        if (failed > kAttempts - kAttemptsToPass) {
            break;
        }
    }
    outcome.complaints = all.str();
    return outcome;
}

}  // namespace oscillator_test
