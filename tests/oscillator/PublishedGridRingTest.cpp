// The published grid record as plain logic: a writer that overtakes a reader
// at every point of its read, played step by step on one thread, and then a
// writer and readers on threads of their own. Nothing here depends on time.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "PublishedGrid.h"

namespace {

using zyn_ts::GridSnapshot;
using zyn_ts::PublishedGrid;

constexpr uint64_t kSlots = PublishedGrid::kSlots;

/// The n-th state a test publishes: every field derived from n, so that a
/// copy mixed from two states shows.
GridSnapshot state(uint64_t n) {
    GridSnapshot snapshot;
    snapshot.running = (n % 2) == 1;
    snapshot.generation = n;
    snapshot.originNs = static_cast<int64_t>(n) * 1000;
    snapshot.periodNs = static_cast<int64_t>(n) * 7;
    return snapshot;
}

bool isState(const GridSnapshot& snapshot, uint64_t n) {
    const GridSnapshot expected = state(n);
    return snapshot.running == expected.running && snapshot.generation == expected.generation &&
           snapshot.originNs == expected.originNs && snapshot.periodNs == expected.periodNs;
}

/// Publishes states first, first + 1, ... up to (excluding) end.
void publishStates(PublishedGrid& grid, uint64_t first, uint64_t end) {
    for (uint64_t n = first; n < end; ++n) {
        grid.publish(state(n));
    }
}

TEST(PublishedGridRing, BeforeAnyPublishAReadFindsTheAllZeroGrid) {
    const PublishedGrid grid;
    GridSnapshot snapshot = state(5);
    ASSERT_TRUE(grid.read(snapshot));
    EXPECT_FALSE(snapshot.running);
    EXPECT_EQ(0u, snapshot.generation);
    EXPECT_EQ(0, snapshot.originNs);
    EXPECT_EQ(0, snapshot.periodNs);
}

TEST(PublishedGridRing, ReadFindsTheLatestPublicationAcrossManyTurnsOfTheRing) {
    PublishedGrid grid;
    for (uint64_t n = 1; n < 5 * kSlots; ++n) {
        grid.publish(state(n));
        GridSnapshot snapshot;
        ASSERT_TRUE(grid.read(snapshot));
        ASSERT_TRUE(isState(snapshot, n)) << "after publication " << n;
        ASSERT_TRUE(isState(grid.lastPublished(), n));
    }
}

TEST(PublishedGridRing, CopyIsKeptWhileTheWriterHasNotComeBackToItsSlot) {
    PublishedGrid grid;
    publishStates(grid, 1, 4);
    const uint64_t seen = grid.publishedVersion();
    publishStates(grid, 4, 4 + kSlots - 2);
    const GridSnapshot copy = grid.copyOf(seen);
    EXPECT_TRUE(grid.slotUntouchedSince(seen));
    EXPECT_TRUE(isState(copy, 3)) << "the slot changed before the writer came back to it";
}

TEST(PublishedGridRing, CopyIsDroppedOnceTheWriterMayBeRewritingItsSlot) {
    // One publication more and the writer's next fill goes into the slot the
    // reader copies: the copy may be torn, so it is not kept.
    PublishedGrid grid;
    publishStates(grid, 1, 4);
    const uint64_t seen = grid.publishedVersion();
    publishStates(grid, 4, 4 + kSlots - 1);
    grid.fill(state(100));
    const GridSnapshot copy = grid.copyOf(seen);
    EXPECT_TRUE(isState(copy, 100)) << "the writer's fill went into another slot than the reader's";
    EXPECT_FALSE(grid.slotUntouchedSince(seen));
}

TEST(PublishedGridRing, WriterOvertakingTheFirstCopyLeavesTheReaderWithTheNewestState) {
    PublishedGrid grid;
    publishStates(grid, 1, 3);
    uint64_t next = 3;
    int copies = 0;
    GridSnapshot snapshot;
    const bool read = grid.readInterleaved(snapshot, [&] {
        if (copies++ == 0) {
            publishStates(grid, next, next + kSlots);
            next += kSlots;
        }
    });
    ASSERT_TRUE(read);
    EXPECT_EQ(2, copies);
    EXPECT_TRUE(isState(snapshot, next - 1)) << "generation " << snapshot.generation;
}

TEST(PublishedGridRing, WriterOvertakingEveryCopyMakesTheReadGiveUpWithTheRecordUntouched) {
    PublishedGrid grid;
    publishStates(grid, 1, 3);
    uint64_t next = 3;
    int copies = 0;
    GridSnapshot snapshot = state(999);
    const bool read = grid.readInterleaved(snapshot, [&] {
        ++copies;
        publishStates(grid, next, next + kSlots - 1);
        next += kSlots - 1;
    });
    EXPECT_FALSE(read);
    EXPECT_EQ(PublishedGrid::kReadAttempts, copies);
    EXPECT_TRUE(isState(snapshot, 999)) << "a read that gave up wrote the caller's record";
}

TEST(PublishedGridRing, WriterPublishingLessThanAFullTurnDuringEachCopyNeverMakesTheReadGiveUp) {
    PublishedGrid grid;
    publishStates(grid, 1, 3);
    uint64_t next = 3;
    GridSnapshot snapshot;
    const bool read = grid.readInterleaved(snapshot, [&] {
        publishStates(grid, next, next + kSlots - 2);
        next += kSlots - 2;
    });
    ASSERT_TRUE(read);
    EXPECT_TRUE(isState(snapshot, 2)) << "the reader kept a copy of a slot the writer had reached";
}

TEST(PublishedGridRing, ReadersOnOtherThreadsNeverSeeAMixOfTwoStates) {
    // A writer publishing as fast as it can; every state a reader keeps must
    // be one state, and no older than one it kept before.
    PublishedGrid grid;
    constexpr uint64_t kPublications = 200000;
    std::atomic<bool> writing{true};
    std::atomic<uint64_t> mixed{0};
    std::atomic<uint64_t> backwards{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 2; ++r) {
        readers.emplace_back([&] {
            uint64_t newest = 0;
            while (writing.load(std::memory_order_acquire)) {
                GridSnapshot snapshot;
                if (!grid.read(snapshot)) {
                    continue;
                }
                if (!isState(snapshot, snapshot.generation)) {
                    mixed.fetch_add(1, std::memory_order_relaxed);
                }
                if (snapshot.generation < newest) {
                    backwards.fetch_add(1, std::memory_order_relaxed);
                }
                newest = snapshot.generation;
            }
        });
    }
    publishStates(grid, 1, kPublications + 1);
    writing.store(false, std::memory_order_release);
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(0u, mixed.load());
    EXPECT_EQ(0u, backwards.load());
    EXPECT_TRUE(isState(grid.lastPublished(), kPublications));
}

}  // namespace
