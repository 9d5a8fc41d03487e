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

TEST(AdaptiveLead, HalfAPercentOfOutliersIsLeftUncovered) {
    AdaptiveLead lead;
    for (size_t i = 0; i < AdaptiveLead::kWindow; ++i) {
        lead.addWakeUp((i % 250 == 0 ? 500 : 50) * kUs);  // 5 of 1024: under 0.5 %
    }
    EXPECT_EQ(61 * kUs, lead.leadFor(kSixMs));
    lead.addWakeUp(500 * kUs);  // the window's first wake-up, 500 us, leaves it: still 5
    for (size_t i = 1; i < AdaptiveLead::kRecomputeEvery; ++i) {
        lead.addWakeUp(i == 1 ? 500 * kUs : 50 * kUs);  // a sixth
    }
    EXPECT_EQ(511 * kUs, lead.leadFor(kSixMs)) << "0.5 % and more are covered";
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
