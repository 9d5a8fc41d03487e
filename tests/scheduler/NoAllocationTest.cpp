// Tick passes allocate nothing: this binary replaces the global operator new
// and counts every allocation made while counting is switched on.

#include <atomic>
#include <cstdlib>
#include <deque>
#include <new>
#include <string>

#include "SchedulerFixture.h"
#include "ScriptedClock.h"
#include "SizedRecords.h"
#include "TickStatistics.h"

namespace {

std::atomic<bool> counting{false};
std::atomic<uint64_t> allocations{0};

void* allocate(std::size_t size) {
    if (counting.load(std::memory_order_relaxed)) {
        allocations.fetch_add(1, std::memory_order_relaxed);
    }
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

namespace scheduler_test {
namespace {

/// Counts the allocations made by `work`.
template <typename Work>
uint64_t allocationsDuring(Work&& work) {
    allocations.store(0);
    counting.store(true);
    work();
    counting.store(false);
    return allocations.load();
}

class NoAllocationTest : public SchedulerTest {
protected:
    STickHandler* add(const std::string& name, uint32_t interval) {
        probes.emplace_back(name, nullptr);
        return registerProbe(probes.back(), interval);
    }

    std::deque<Probe> probes;
};

TEST_F(NoAllocationTest, CountingSeesAnAllocation) {
    // The counter itself works: otherwise the tests below could not fail.
    // Kept in a volatile variable so that the compiler cannot elide the pair.
    static int* volatile block = nullptr;
    const uint64_t counted = allocationsDuring([] {
        block = new int(3);
        delete block;
    });
    EXPECT_EQ(counted, 1u);
}

TEST_F(NoAllocationTest, PassesAllocateNothing) {
    add("every", 1);
    add("second", 2);
    add("zero", 0);
    STickHandler* disabled = add("disabled", 1);
    STickHandler* grouped = add("grouped", 3);
    STickHandler* offset = add("offset", 7);
    ASSERT_EQ(CTickScheduler_DisableTickHandler(disabled), TickResult::Success);
    ASSERT_EQ(CTickScheduler_AddGroup(grouped, 0), TickResult::Success);
    ASSERT_EQ(CTickScheduler_DisableTickGroup(0), TickResult::Success);
    ASSERT_EQ(CTickScheduler_SetStartOffset(offset, 4), TickResult::Success);

    const uint64_t counted = allocationsDuring([] { tick(1000); });
    EXPECT_EQ(counted, 0u);
    EXPECT_EQ(probes[0].calls.load(), 1000);
    EXPECT_EQ(probes[3].calls.load(), 0);
}

TEST_F(NoAllocationTest, TickFunctionsSwitchingHandlersAndGroupsAllocateNothing) {
    STickHandler* target = add("target", 1);
    STickHandler* member = add("member", 1);
    ASSERT_EQ(CTickScheduler_AddGroup(member, 1), TickResult::Success);
    probes.emplace_back("switcher", nullptr);
    Probe& switcher = probes.back();
    int round = 0;
    switcher.action = [&] {
        ++round;
        (void)CTickScheduler_DisableTickHandler(target);
        (void)CTickScheduler_EnableTickHandler(target);
        (void)CTickScheduler_RemoveGroup(member, 1);
        (void)CTickScheduler_AddGroup(member, 1);
        (void)CTickScheduler_SetStartOffset(target, 0);
    };
    registerProbe(switcher, 1);
    const uint64_t counted = allocationsDuring([] { tick(500); });
    EXPECT_EQ(counted, 0u);
    EXPECT_EQ(round, 500);
}

TEST_F(NoAllocationTest, PassesAfterRegistrationsBetweenThemAllocateNothing) {
    for (int i = 0; i < 40; ++i) {
        add("h" + std::to_string(i), 1 + static_cast<uint32_t>(i % 5));
        const uint64_t counted = allocationsDuring([] { tick(3); });
        EXPECT_EQ(counted, 0u) << "after registration " << i;
    }
}

TEST_F(NoAllocationTest, OnlyThePassInWhichTheListGrewAllocates) {
    add("first", 1);
    probes.emplace_back("grower", nullptr);
    Probe& grower = probes.back();
    std::deque<Probe> added;
    bool grown = false;
    grower.action = [&] {
        if (!grown) {
            grown = true;
            for (int i = 0; i < 64; ++i) {
                added.emplace_back("added", nullptr);
                registerProbe(added.back(), 1);
            }
        }
    };
    registerProbe(grower, 1);
    tick();
    const uint64_t counted = allocationsDuring([] { tick(100); });
    EXPECT_EQ(counted, 0u);
    EXPECT_EQ(added.front().calls.load(), 100);
}

TEST_F(NoAllocationTest, TimedPassesAllocateNothing) {
    const test_support::ScriptedClock clock;
    add("every", 1);
    add("second", 2);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    const uint64_t counted = allocationsDuring([] { tick(1000); });
    EXPECT_EQ(counted, 0u);
    EXPECT_EQ(probes[0].calls.load(), 1000);
}

TEST_F(NoAllocationTest, OverrunsLeftOutByTheRateLimitAllocateNothing) {
    const test_support::ScriptedClock clock;
    add("slow", 1);
    probes.back().action = [] { test_support::ScriptedClock::advance(7 * test_support::ScriptedClock::kMs); };
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    tick();  // the one overrun message of this second
    const uint64_t counted = allocationsDuring([] { tick(100); });
    EXPECT_EQ(counted, 0u);
    EXPECT_EQ(sized_record::filledBy<STickSchedulerStatistics>(&CTickScheduler_GetSchedulerStatistics).overruns, 101u);
}

}  // namespace
}  // namespace scheduler_test
