// The adaptive lead on its own: the percentile of its window, its margin,
// its floor and ceiling, and the window that forgets old wake-ups.
#include <gtest/gtest.h>

#include <cstdint>

#include "AdaptiveLead.h"

namespace {

using zyn_ts::AdaptiveLead;

constexpr int64_t kUs = 1000;
constexpr int64_t kSixMs = 6000 * kUs;

TEST(AdaptiveLead, StartsAtItsInitialLeadUntilEnoughWakeUpsAreKnown) {
    AdaptiveLead lead;
    for (size_t i = 0; i + 1 < AdaptiveLead::kRecomputeEvery; ++i) {
        lead.addWakeUp(25 * kUs);
    }
    EXPECT_EQ(100 * kUs, lead.leadFor(kSixMs));
    EXPECT_EQ(100 * kUs, lead.leadFor(1000 * kUs)) << "the 1 ms grid's ceiling";
    lead.addWakeUp(25 * kUs);
    EXPECT_EQ(36 * kUs, lead.leadFor(kSixMs)) << "25 us bin's edge plus the margin";
}

TEST(AdaptiveLead, ForgetsWakeUpsOlderThanItsWindow) {
    AdaptiveLead lead;
    for (size_t i = 0; i < AdaptiveLead::kWindow; ++i) {
        lead.addWakeUp(300 * kUs);
    }
    EXPECT_EQ(311 * kUs, lead.leadFor(kSixMs));
    for (size_t i = 0; i < AdaptiveLead::kWindow; ++i) {
        lead.addWakeUp(40 * kUs);
    }
    EXPECT_EQ(51 * kUs, lead.leadFor(kSixMs));
    EXPECT_EQ(AdaptiveLead::kWindow, lead.samples());
}

TEST(AdaptiveLead, TheOutliersBeyondItsPercentileAreLeftUncoveredAndOneMoreIsCovered) {
    const size_t allowed = AdaptiveLead::kWindow * (1000 - AdaptiveLead::kPercentilePerMille) / 1000;
    ASSERT_GT(allowed, 0u);
    AdaptiveLead uncovered;
    AdaptiveLead covered;
    for (size_t i = 0; i < AdaptiveLead::kWindow; ++i) {
        uncovered.addWakeUp((i < allowed ? 500 : 50) * kUs);
        covered.addWakeUp((i <= allowed ? 500 : 50) * kUs);
    }
    EXPECT_EQ(61 * kUs, uncovered.leadFor(kSixMs));
    EXPECT_EQ(511 * kUs, covered.leadFor(kSixMs));
}

TEST(AdaptiveLead, StaysBetweenItsFloorAndTenPercentOfThePeriod) {
    AdaptiveLead punctual;
    AdaptiveLead wild;
    for (size_t i = 0; i < AdaptiveLead::kWindow; ++i) {
        punctual.addWakeUp(0);
        wild.addWakeUp(5 * kSixMs);
    }
    EXPECT_EQ(AdaptiveLead::kFloorNs, punctual.leadFor(kSixMs));
    EXPECT_EQ(600 * kUs, wild.leadFor(kSixMs));
    EXPECT_EQ(100 * kUs, wild.leadFor(1000 * kUs));
}

}  // namespace
