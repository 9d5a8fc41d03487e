// The tick grid record: the same bytes on 32-bit and 64-bit targets, so that
// a client built separately reads the grid at fixed offsets. The size comes
// first so that the record can grow at its end.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "RawBytes.h"
#include "TickGrid.h"

using raw_bytes::readAt;

static_assert(raw_bytes::kPlainRecord<STickGrid>, "STickGrid keeps a C layout and is copied as bytes");
// The size first, running after it, the generation starts the 64-bit fields,
// the origin and the period follow; no padding on any target.
static_assert(raw_bytes::laidOutAs({offsetof(STickGrid, size), offsetof(STickGrid, running),
                                    offsetof(STickGrid, generation), offsetof(STickGrid, originNs),
                                    offsetof(STickGrid, periodNs), sizeof(STickGrid)},
                                   {0, 4, 8, 16, 24, 32}),
              "size, running, generation, originNs, periodNs at fixed offsets, 32 bytes");
static_assert(alignof(STickGrid) == 8, "64-bit fields are 8-byte aligned on every target");

TEST(TickGridLayout, RawBytesHoldSizeRunningGenerationOriginPeriodInThisOrder) {
    STickGrid grid{};
    grid.size = 0x11111111u;
    grid.running = 1u;
    grid.generation = 0x2222222233333333ULL;
    grid.originNs = -0x4444444455555555LL;
    grid.periodNs = 6000000;

    EXPECT_EQ(readAt<uint32_t>(&grid, 0), 0x11111111u);
    EXPECT_EQ(readAt<uint32_t>(&grid, 4), 1u);
    EXPECT_EQ(readAt<uint64_t>(&grid, 8), 0x2222222233333333ULL);
    EXPECT_EQ(readAt<int64_t>(&grid, 16), -0x4444444455555555LL);
    EXPECT_EQ(readAt<int64_t>(&grid, 24), 6000000);
}
