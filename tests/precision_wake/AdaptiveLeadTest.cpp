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
        lead.addWakeUp(5 * kUs);
    }
    EXPECT_EQ(100 * kUs, lead.leadFor(kSixMs));
    EXPECT_EQ(100 * kUs, lead.leadFor(1000 * kUs)) << "the 1 ms grid's ceiling";
    lead.addWakeUp(5 * kUs);
    EXPECT_EQ(21 * kUs, lead.leadFor(kSixMs)) << "5 us bin's edge plus the margin";
}

TEST(AdaptiveLead, ForgetsWakeUpsOlderThanItsWindow) {
    AdaptiveLead lead;
    for (size_t i = 0; i < AdaptiveLead::kWindow; ++i) {
        lead.addWakeUp(300 * kUs);
    }
    EXPECT_EQ(316 * kUs, lead.leadFor(kSixMs));
    for (size_t i = 0; i < AdaptiveLead::kWindow; ++i) {
        lead.addWakeUp(40 * kUs);
    }
    EXPECT_EQ(56 * kUs, lead.leadFor(kSixMs));
    EXPECT_EQ(AdaptiveLead::kWindow, lead.samples());
}

TEST(AdaptiveLead, OnePercentOfOutliersIsLeftUncovered) {
    AdaptiveLead lead;
    for (size_t i = 0; i < AdaptiveLead::kWindow; ++i) {
        lead.addWakeUp((i % 200 == 0 ? 500 : 50) * kUs);  // 0.5 % outliers
    }
    EXPECT_EQ(66 * kUs, lead.leadFor(kSixMs));
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
