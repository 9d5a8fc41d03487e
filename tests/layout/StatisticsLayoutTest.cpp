// The statistics records: the same bytes on 32-bit and 64-bit targets, so
// that a client built separately reads them at fixed offsets. The size comes
// first so that the records can grow at their end.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "RawBytes.h"
#include "TickStatistics.h"

using raw_bytes::readAt;

using HandlerRecord = STickHandlerStatistics;
using SchedulerRecord = STickSchedulerStatistics;

static_assert(raw_bytes::kPlainRecord<HandlerRecord>, "a C layout, copied as bytes");
// The size first, the counts start the 64-bit fields, no padding on any
// target.
static_assert(raw_bytes::laidOutAs({offsetof(HandlerRecord, size), offsetof(HandlerRecord, calls),
                                    offsetof(HandlerRecord, overBudget), offsetof(HandlerRecord, totalNs),
                                    offsetof(HandlerRecord, minNs), offsetof(HandlerRecord, maxNs),
                                    offsetof(HandlerRecord, lastNs), sizeof(HandlerRecord)},
                                   {0, 8, 16, 24, 32, 40, 48, 56}),
              "size, calls, overBudget, totalNs, minNs, maxNs, lastNs at fixed offsets, 56 bytes");

static_assert(raw_bytes::kPlainRecord<SchedulerRecord>, "a C layout, copied as bytes");
// The size first, then fixed offsets up to the culprit's name, no padding on
// any target.
static_assert(raw_bytes::laidOutAs({offsetof(SchedulerRecord, size), offsetof(SchedulerRecord, enabled),
                                    offsetof(SchedulerRecord, passes), offsetof(SchedulerRecord, overruns),
                                    offsetof(SchedulerRecord, periodNs), offsetof(SchedulerRecord, handlerBudgetNs),
                                    offsetof(SchedulerRecord, longestPassNs),
                                    offsetof(SchedulerRecord, longestPassCulpritNs),
                                    offsetof(SchedulerRecord, longestPassCulprit), sizeof(SchedulerRecord)},
                                   {0, 4, 8, 16, 24, 32, 40, 48, 56, 88}),
              "size, enabled, passes, overruns, periodNs, handlerBudgetNs, longestPassNs, longestPassCulpritNs, "
              "longestPassCulprit at fixed offsets, 88 bytes");
static_assert(alignof(SchedulerRecord) == 8, "64-bit fields are 8-byte aligned on every target");

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
