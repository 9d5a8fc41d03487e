// The statistics allocate nothing: registering and unregistering a handler
// allocates exactly what it does for the handler itself, with the statistics
// off or on; switching them on needs no memory, so a failing allocator
// changes nothing; and a handler beyond the table's capacity still runs and
// is still named when it makes a pass overrun.
#include <gtest/gtest.h>

#include <cstdio>
#include <deque>
#include <string>
#include <vector>

#include "AllocationCounter.h"
#include "BothSchedulers.h"
#include "CList.h"
#include "ScriptedClock.h"

namespace statistics_test {
namespace {

using test_support::AllocationFailureScope;
using test_support::AllocationScope;
using test_support::ScriptedClock;
constexpr int64_t kMs = ScriptedClock::kMs;

/// A tick function that takes `duration` on the scripted clock.
struct SlowHandler {
    explicit SlowHandler(int64_t callDuration) : duration(callDuration) {}
    ITickReceiver receiver() { return ITickReceiver{this, &SlowHandler::onTick}; }
    static void onTick(void* context) { ScriptedClock::advance(static_cast<SlowHandler*>(context)->duration); }
    int64_t duration;
    STickHandler* handle = nullptr;
};

/// The allocations of one registration and unregistration with the
/// interval scheduler.
struct Counts {
    uint64_t registration;
    uint64_t unregistration;
};

Counts schedulerRegistrationCounts() {
    SlowHandler handler(0);
    const ITickReceiver receiver = handler.receiver();
    Counts counts{};
    {
        const AllocationScope scope;
        EXPECT_EQ(CTickScheduler_RegisterTickHandler(&handler.handle, &receiver, 1, "Counted"), TickResult::Success);
        counts.registration = scope.count();
    }
    {
        const AllocationScope scope;
        EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&handler.handle), TickResult::Success);
        counts.unregistration = scope.count();
    }
    return counts;
}

Counts fastRegistrationCounts() {
    SlowHandler handler(0);
    const ITickReceiver receiver = handler.receiver();
    Counts counts{};
    // The double records every list call: each count starts from an empty
    // record, as the list's own counts below do.
    platform_double::reset();
    platform_double::setTraceLevel(0);
    {
        const AllocationScope scope;
        EXPECT_EQ(CTickSchedulerFast_RegisterTickHandler(&handler.handle, &receiver, "Counted"), TickResult::Success);
        counts.registration = scope.count();
    }
    platform_double::reset();
    platform_double::setTraceLevel(0);
    {
        const AllocationScope scope;
        EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&handler.handle), TickResult::Success);
        counts.unregistration = scope.count();
    }
    return counts;
}

/// What the platform's list allocates to append one element and to remove
/// it again, each counted from an empty record of the double's.
Counts listAllocations() {
    CList list{};
    (void)CList_Construct(&list);
    int element = 0;
    Counts counts{};
    platform_double::reset();
    {
        const AllocationScope scope;
        (void)CList_PushTail(&list, &element);
        counts.registration = scope.count();
    }
    platform_double::reset();
    {
        const AllocationScope scope;
        (void)CList_Remove(&list, &element);
        counts.unregistration = scope.count();
    }
    return counts;
}

class StatisticsAllocation : public BothSchedulersTest {
protected:
    /// Trace messages are built only for enabled levels: with tracing off,
    /// what is left to count is the registration's own memory.
    static void traceNothing() { platform_double::setTraceLevel(0); }
};

TEST_F(StatisticsAllocation, RegistrationAllocatesOnlyTheRecordWithStatisticsOffOrOn) {
    traceNothing();
    // Warm: the handler list has room, so only the record is left to count.
    std::vector<SlowHandler> warm(8, SlowHandler(0));
    for (SlowHandler& handler : warm) {
        const ITickReceiver receiver = handler.receiver();
        ASSERT_EQ(CTickScheduler_RegisterTickHandler(&handler.handle, &receiver, 1, "Warm"), TickResult::Success);
    }
    for (SlowHandler& handler : warm) {
        ASSERT_EQ(CTickScheduler_UnregisterTickHandler(&handler.handle), TickResult::Success);
    }

    const Counts off = schedulerRegistrationCounts();
    EXPECT_EQ(off.registration, 1u) << "the record alone";
    EXPECT_EQ(off.unregistration, 0u);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    const Counts on = schedulerRegistrationCounts();
    EXPECT_EQ(on.registration, 1u);
    EXPECT_EQ(on.unregistration, 0u);
}

TEST_F(StatisticsAllocation, FastRegistrationAllocatesOnlyTheRecordAndTheListsOwnWithStatisticsOffOrOn) {
    traceNothing();
    const Counts list = listAllocations();
    const Counts off = fastRegistrationCounts();
    EXPECT_EQ(off.registration, 1u + list.registration) << "the record and the list's own";
    EXPECT_EQ(off.unregistration, list.unregistration);
    ASSERT_EQ(CTickSchedulerFast_EnableStatistics(0), TickResult::Success);
    const Counts on = fastRegistrationCounts();
    EXPECT_EQ(on.registration, 1u + list.registration);
    EXPECT_EQ(on.unregistration, list.unregistration);
}

TEST_F(StatisticsAllocation, SwitchingOnWhileEveryAllocationFailsStillNamesTheOverrunsCulprit) {
    ScriptedClock clock;
    SlowHandler quick(1 * kMs);
    SlowHandler slow(6 * kMs);
    const ITickReceiver quickReceiver = quick.receiver();
    const ITickReceiver slowReceiver = slow.receiver();
    ASSERT_EQ(CTickScheduler_RegisterTickHandler(&quick.handle, &quickReceiver, 1, "Quick"), TickResult::Success);
    ASSERT_EQ(CTickScheduler_RegisterTickHandler(&slow.handle, &slowReceiver, 1, "Slow"), TickResult::Success);
    {
        const AllocationFailureScope failing;
        ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
        EXPECT_EQ(failing.refused(), 0u) << "switching on needs no memory";
    }
    platform_double::reset();
    CTickScheduler_OnTick(nullptr);

    STickSchedulerStatistics pass{};
    pass.size = sizeof(pass);
    ASSERT_EQ(CTickScheduler_GetSchedulerStatistics(&pass), TickResult::Success);
    EXPECT_EQ(pass.overruns, 1u);
    EXPECT_EQ(std::string(pass.longestPassCulprit), "Slow");
    STickHandlerStatistics figures{};
    figures.size = sizeof(figures);
    ASSERT_EQ(CTickScheduler_GetHandlerStatistics(slow.handle, &figures), TickResult::Success);
    EXPECT_EQ(figures.calls, 1u);
    EXPECT_EQ(figures.maxNs, 6 * kMs);
    const std::vector<platform_double::TraceRecord> traces = platform_double::traces();
    ASSERT_EQ(traces.size(), 1u);
    EXPECT_NE(traces[0].text.find("longest TickHandler Slow took 6000.000 us"), std::string::npos) << traces[0].text;
}

TEST_F(StatisticsAllocation, AHandlerThatFindsNoSlotRunsHasNoFiguresAndIsStillNamed) {
    ScriptedClock clock;
    // Registers handlers until the table has no room for one: that one is
    // made slow. Addresses must stay put, hence a deque.
    std::deque<SlowHandler> handlers;
    STickHandlerStatistics figures{};
    figures.size = sizeof(figures);
    SlowHandler* beyond = nullptr;
    while (beyond == nullptr && handlers.size() < 4 * zyn_ts::kHandlerSlots) {
        SlowHandler& handler = handlers.emplace_back(0);
        const ITickReceiver receiver = handler.receiver();
        ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&handler.handle, &receiver, "Filler"), TickResult::Success);
        if (CTickSchedulerFast_GetHandlerStatistics(handler.handle, &figures) == TickResult::NoFigures) {
            beyond = &handler;
        }
    }
    ASSERT_NE(beyond, nullptr) << "the table never ran out of room";
    std::snprintf(beyond->handle->name, sizeof(beyond->handle->name), "%s", "Beyond");
    beyond->duration = 2 * kMs;
    ASSERT_EQ(CTickSchedulerFast_EnableStatistics(0), TickResult::Success);
    platform_double::reset();
    CTickSchedulerFast_OnTick(nullptr);

    EXPECT_EQ(CTickSchedulerFast_GetHandlerStatistics(beyond->handle, &figures), TickResult::NoFigures);
    ASSERT_EQ(CTickSchedulerFast_GetHandlerStatistics(handlers.front().handle, &figures), TickResult::Success);
    EXPECT_EQ(figures.calls, 1u);
    STickSchedulerStatistics pass{};
    pass.size = sizeof(pass);
    ASSERT_EQ(CTickSchedulerFast_GetSchedulerStatistics(&pass), TickResult::Success);
    EXPECT_EQ(pass.overruns, 1u);
    EXPECT_EQ(std::string(pass.longestPassCulprit), "Beyond");

    // Once every handler is gone, the table answers for unknown handles as
    // before.
    STickHandler* const former = beyond->handle;
    for (SlowHandler& handler : handlers) {
        ASSERT_EQ(CTickSchedulerFast_UnregisterTickHandler(&handler.handle), TickResult::Success);
    }
    EXPECT_EQ(CTickSchedulerFast_GetHandlerStatistics(former, &figures), TickResult::UnknownHandler);
}

}  // namespace
}  // namespace statistics_test
