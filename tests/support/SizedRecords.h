// Records that carry their own size, as the statistics and grid queries of
// both scheduler modules take them: filling one, and one that a caller built
// against a later, larger version of the record.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "TickResultCodes.h"

namespace sized_record {

/// An empty `Record` sized as this build knows it.
template <typename Record>
Record sized() {
    Record record{};
    record.size = sizeof(record);
    return record;
}

/// A `Record` sized as this build knows it, filled by `query(&record)`; the
/// query must succeed.
template <typename Record, typename Query>
Record filledBy(Query query) {
    Record record = sized<Record>();
    EXPECT_EQ(query(&record), TickResult::Success);
    return record;
}

/// A `Record` followed by a field that only a later version would know.
template <typename Record>
struct Grown {
    Record known;
    uint64_t later;
};

/// A grown record whose size says so, with `pattern` in the later field.
template <typename Record>
Grown<Record> grown(uint64_t pattern) {
    Grown<Record> record{};
    record.known.size = sizeof(record);
    record.later = pattern;
    return record;
}

}  // namespace sized_record
