// When the monitor locks its memory, and when it must not.

#include "MemoryLock.h"

#include <gtest/gtest.h>

#include <string>

namespace tickmon {
namespace {

TEST(MemoryLock, NotAskedSaysSo) {
    const MemoryLockOutcome outcome = lockMemory(false, MemoryLockRights{true, true, 0});
    EXPECT_FALSE(outcome.locked);
    EXPECT_EQ(outcome.description, "not asked (--no-mlock)");
}

TEST(MemoryLock, LimitedWithoutCapabilityIsNotLockedSoThatThreadsCanStillStart) {
    const MemoryLockOutcome outcome = lockMemory(true, MemoryLockRights{false, false, 8388608});
    EXPECT_FALSE(outcome.locked);
    EXPECT_EQ(outcome.description,
              "not locked: RLIMIT_MEMLOCK is 8388608 bytes without CAP_IPC_LOCK, too little for the threads' stacks");
}

TEST(MemoryLock, CapIpcLockIsBit14OfCapEff) {
    EXPECT_TRUE(capEffHasIpcLock("Name:\tx\nCapInh:\t0000000000000000\nCapEff:\t000001ffffffffff\n"));
    EXPECT_TRUE(capEffHasIpcLock("CapEff:\t0000000000004000\n"));
    EXPECT_FALSE(capEffHasIpcLock("CapEff:\t0000000000003fff\n"));
    EXPECT_FALSE(capEffHasIpcLock("CapPrm:\t000001ffffffffff\n"));  // not the effective set
    EXPECT_FALSE(capEffHasIpcLock("CapEff:\tzzzz\n"));
    EXPECT_FALSE(capEffHasIpcLock("CapEff:\n"));
    EXPECT_FALSE(capEffHasIpcLock(""));
}

}  // namespace
}  // namespace tickmon
