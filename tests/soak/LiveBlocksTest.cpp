#include "LiveBlocks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace {

// The record only keeps addresses; these are never dereferenced.
const void* fakeBlock(size_t index) { return reinterpret_cast<const void*>(0x100000 + index * 16); }

class LiveBlocksTest : public ::testing::Test {
protected:
    void SetUp() override { soak::armLiveBlocks(); }
    void TearDown() override { soak::disarmLiveBlocks(); }
};

TEST_F(LiveBlocksTest, ABlockReleasedWhileArmedIsNoLongerLive) {
    soak::blockAllocated(fakeBlock(1), 24);
    soak::blockAllocated(fakeBlock(2), 48);
    soak::blockReleased(fakeBlock(1));
    EXPECT_EQ(soak::liveBlockCount(), 1u);
}

TEST_F(LiveBlocksTest, NothingIsRecordedWhileDisarmed) {
    soak::disarmLiveBlocks();
    soak::blockAllocated(fakeBlock(1), 24);
    EXPECT_EQ(soak::liveBlockCount(), 0u);
}

TEST_F(LiveBlocksTest, ReleasingABlockAllocatedBeforeArmingChangesNothing) {
    soak::blockAllocated(fakeBlock(1), 24);
    soak::blockReleased(fakeBlock(99));
    EXPECT_EQ(soak::liveBlockCount(), 1u);
}

TEST_F(LiveBlocksTest, ArmingAgainForgetsTheEarlierRecord) {
    soak::blockAllocated(fakeBlock(1), 24);
    soak::armLiveBlocks();
    EXPECT_EQ(soak::liveBlockCount(), 0u);
}

// Random addresses filling most of the table share long probe runs,
// whatever the hash; releasing them in random order must find each one,
// whatever was moved back into the holes of earlier releases.
TEST_F(LiveBlocksTest, EveryBlockIsFoundForReleaseInAnyOrder) {
    constexpr size_t kBlocks = 12000;
    std::mt19937_64 random(20261125);
    std::vector<const void*> blocks;
    while (blocks.size() < kBlocks) {
        const void* block = reinterpret_cast<const void*>((random() & 0xFFFFFFFFFFF0u) | 0x10);
        if (std::find(blocks.begin(), blocks.end(), block) == blocks.end()) {
            blocks.push_back(block);
            soak::blockAllocated(block, 32);
        }
    }
    ASSERT_EQ(soak::liveBlockCount(), kBlocks);
    std::shuffle(blocks.begin(), blocks.end(), random);
    for (size_t i = 0; i < kBlocks / 2; ++i) {
        soak::blockReleased(blocks[i]);
    }
    EXPECT_EQ(soak::liveBlockCount(), kBlocks / 2);
    for (size_t i = kBlocks / 2; i < kBlocks; ++i) {
        soak::blockReleased(blocks[i]);
    }
    EXPECT_EQ(soak::liveBlockCount(), 0u);
}

TEST_F(LiveBlocksTest, BlocksBeyondTheTableAreCountedNotRecorded) {
    size_t allocated = 0;
    while (soak::unrecordedBlockCount() == 0 && allocated < 1000000) {
        soak::blockAllocated(fakeBlock(allocated++), 8);
    }
    soak::blockAllocated(fakeBlock(allocated++), 8);
    EXPECT_EQ(soak::unrecordedBlockCount(), 2u);
    EXPECT_EQ(soak::liveBlockCount(), allocated - 2);
}

TEST_F(LiveBlocksTest, TheReportNamesEachLiveBlockWithItsSizeAndStack) {
    soak::blockAllocated(fakeBlock(7), 4242);
    ::testing::internal::CaptureStderr();
    const size_t printed = soak::printLiveBlocks();
    const std::string report = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(printed, 1u);
    EXPECT_NE(report.find("live block of 4242 bytes"), std::string::npos) << report;
    // One line for the block, then one per frame from the test's call down
    // to the start of the program: at least the test and main.
    EXPECT_GE(std::count(report.begin(), report.end(), '\n'), 3) << report;
}

}  // namespace
