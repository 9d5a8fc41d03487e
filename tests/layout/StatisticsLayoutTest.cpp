// The statistics records: the same bytes on 32-bit and 64-bit targets, so
// that a client built separately reads them at fixed offsets. The size comes
// first so that the records can grow at their end.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "RawBytes.h"
#include "TickStatistics.h"

using raw_bytes::readAt;

static_assert(std::is_standard_layout<STickHandlerStatistics>::value, "a C layout");
static_assert(std::is_trivially_copyable<STickHandlerStatistics>::value, "copied as bytes");
static_assert(offsetof(STickHandlerStatistics, size) == 0, "the size comes first");
static_assert(offsetof(STickHandlerStatistics, calls) == 8, "the counts start the 64-bit fields");
static_assert(offsetof(STickHandlerStatistics, overBudget) == 16, "fixed offset");
static_assert(offsetof(STickHandlerStatistics, totalNs) == 24, "fixed offset");
static_assert(offsetof(STickHandlerStatistics, minNs) == 32, "fixed offset");
static_assert(offsetof(STickHandlerStatistics, maxNs) == 40, "fixed offset");
static_assert(offsetof(STickHandlerStatistics, lastNs) == 48, "fixed offset");
static_assert(sizeof(STickHandlerStatistics) == 56, "no padding on any target");

static_assert(std::is_standard_layout<STickSchedulerStatistics>::value, "a C layout");
static_assert(std::is_trivially_copyable<STickSchedulerStatistics>::value, "copied as bytes");
static_assert(offsetof(STickSchedulerStatistics, size) == 0, "the size comes first");
static_assert(offsetof(STickSchedulerStatistics, enabled) == 4, "fixed offset");
static_assert(offsetof(STickSchedulerStatistics, passes) == 8, "fixed offset");
static_assert(offsetof(STickSchedulerStatistics, overruns) == 16, "fixed offset");
static_assert(offsetof(STickSchedulerStatistics, periodNs) == 24, "fixed offset");
static_assert(offsetof(STickSchedulerStatistics, handlerBudgetNs) == 32, "fixed offset");
static_assert(offsetof(STickSchedulerStatistics, longestPassNs) == 40, "fixed offset");
static_assert(offsetof(STickSchedulerStatistics, longestPassCulpritNs) == 48, "fixed offset");
static_assert(offsetof(STickSchedulerStatistics, longestPassCulprit) == 56, "fixed offset");
static_assert(sizeof(STickSchedulerStatistics) == 88, "no padding on any target");
static_assert(alignof(STickSchedulerStatistics) == 8, "64-bit fields are 8-byte aligned on every target");

TEST(StatisticsLayout, HandlerRecordHoldsSizeThenCountsThenTimesInThisOrder) {
    STickHandlerStatistics record{};
    record.size = 56;
    record.calls = 0x1111111122222222ULL;
    record.overBudget = 3;
    record.totalNs = 4;
    record.minNs = 5;
    record.maxNs = 6;
    record.lastNs = 7;
    EXPECT_EQ(readAt<uint32_t>(&record, 0), 56u);
    EXPECT_EQ(readAt<uint64_t>(&record, 8), 0x1111111122222222ULL);
    EXPECT_EQ(readAt<uint64_t>(&record, 16), 3u);
    EXPECT_EQ(readAt<int64_t>(&record, 24), 4);
    EXPECT_EQ(readAt<int64_t>(&record, 32), 5);
    EXPECT_EQ(readAt<int64_t>(&record, 40), 6);
    EXPECT_EQ(readAt<int64_t>(&record, 48), 7);
}

TEST(StatisticsLayout, SchedulerRecordEndsWithTheCulpritsName) {
    STickSchedulerStatistics record{};
    record.size = 88;
    record.enabled = 1;
    record.longestPassCulpritNs = 9;
    record.longestPassCulprit[0] = 'S';
    EXPECT_EQ(readAt<uint32_t>(&record, 0), 88u);
    EXPECT_EQ(readAt<uint32_t>(&record, 4), 1u);
    EXPECT_EQ(readAt<int64_t>(&record, 48), 9);
    EXPECT_EQ(readAt<char>(&record, 56), 'S');
}
