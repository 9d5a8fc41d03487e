// The tick grid record: the same bytes on 32-bit and 64-bit targets, so that
// a client built separately reads the grid at fixed offsets. The size comes
// first so that the record can grow at its end.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "RawBytes.h"
#include "TickGrid.h"

using raw_bytes::readAt;

static_assert(std::is_standard_layout<STickGrid>::value, "STickGrid keeps a C layout");
static_assert(std::is_trivially_copyable<STickGrid>::value, "STickGrid is copied as bytes");
static_assert(offsetof(STickGrid, size) == 0, "the size comes first");
static_assert(offsetof(STickGrid, running) == 4, "running follows the size");
static_assert(offsetof(STickGrid, generation) == 8, "the generation starts the 64-bit fields");
static_assert(offsetof(STickGrid, originNs) == 16, "the origin follows the generation");
static_assert(offsetof(STickGrid, periodNs) == 24, "the period follows the origin");
static_assert(sizeof(STickGrid) == 32, "no padding on any target");
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
