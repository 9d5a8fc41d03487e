// Dispatch cost per due handler of both schedulers, each beside its floor
// measured in the same binary:
// - a plain loop of the same indirect calls through the handler records, the
//   least any list-walking dispatcher must do (the floor for
//   CTickSchedulerFast, which calls its handlers with its mutex held);
// - that loop with one mutex unlock and lock around each call (the floor for
//   CTickScheduler, which releases its mutex around every handler call).
// A third floor, the plain loop walking the platform list service as the fast
// scheduler does (one list call per handler), shows how much of the fast
// dispatch is the list service's rather than the module's own.
// The floors above walk records of their own, laid out otherwise than a
// scheduler's registrations lay out theirs, and each benchmark registers its
// handlers anew, in a heap that the ones before it left behind. So the two
// *_AgainstIts* benchmarks time a dispatch and walks of its very own
// records, one after the other in every iteration: the fast scheduler's
// handler list walked with its list calls (with and without the due test),
// and CTickScheduler's handler array with its own mutex released around each
// call. Their "ratio" counter is the dispatch's cost over the first walk's.
// Each scheduler is measured with its handler statistics off (the default)
// and on (every call timed on CLOCK_MONOTONIC), and with its event capture on
// (every pass and call written into the scheduler's event ring). Every handler has interval 1
// and the trivial tick function, so every handler is due on every pass. Times are per pass; the per_handler counter
// is the time per due handler.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "CList.h"
#include "CTickScheduler.h"
#include "CTickSchedulerFast.h"
#include "CTickSchedulerFastModule.h"
#include "CTickSchedulerModule.h"
#include "TickEventCapture.h"
#include "TickFunctions.h"
#include "TickStatistics.h"

namespace {

void setPerHandlerCounter(benchmark::State& state, int64_t handlers) {
    state.SetItemsProcessed(state.iterations() * handlers);
    state.counters["per_handler"] = benchmark::Counter(
        static_cast<double>(handlers), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// Records shaped as the schedulers' own, for the floors.
std::vector<STickHandler*> makeRecords(int64_t count, uint64_t* counter) {
    std::vector<STickHandler*> records;
    for (int64_t i = 0; i < count; ++i) {
        auto* record = new STickHandler{};
        record->tickReceiver = bench::countingReceiver(counter);
        record->enabled = 1;
        record->tickInterval = 1;
        records.push_back(record);
    }
    return records;
}

void freeRecords(std::vector<STickHandler*>& records) {
    for (STickHandler* record : records) {
        delete record;
    }
    records.clear();
}

void BM_Floor_PlainCalls(benchmark::State& state) {
    uint64_t counter = 0;
    std::vector<STickHandler*> records = makeRecords(state.range(0), &counter);
    for (auto _ : state) {
        for (STickHandler* record : records) {
            record->tickReceiver.onTick(record->tickReceiver.context);
        }
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(counter);
    setPerHandlerCounter(state, state.range(0));
    freeRecords(records);
}

void BM_Floor_ListWalkCalls(benchmark::State& state) {
    uint64_t counter = 0;
    std::vector<STickHandler*> records = makeRecords(state.range(0), &counter);
    CList list{};
    CList_Construct(&list);
    for (STickHandler* record : records) {
        CList_PushTail(&list, record);
    }
    for (auto _ : state) {
        CListCursor cursor = nullptr;
        if (CList_StartIterationFromHead(&list, &cursor) != CLIST_END_OF_LIST) {
            uint32_t status = 0;
            do {
                void* element = nullptr;
                status = CList_GetNext(&list, &element, &cursor);
                auto* record = static_cast<STickHandler*>(element);
                record->tickReceiver.onTick(record->tickReceiver.context);
            } while (status != CLIST_END_OF_LIST);
        }
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(counter);
    setPerHandlerCounter(state, state.range(0));
    for (STickHandler* record : records) {
        CList_Remove(&list, record);
    }
    freeRecords(records);
}

void BM_Floor_UnlockLockCalls(benchmark::State& state) {
    uint64_t counter = 0;
    std::vector<STickHandler*> records = makeRecords(state.range(0), &counter);
    std::mutex mutex;
    for (auto _ : state) {
        std::unique_lock<std::mutex> lock(mutex);
        for (STickHandler* record : records) {
            lock.unlock();
            record->tickReceiver.onTick(record->tickReceiver.context);
            lock.lock();
        }
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(counter);
    setPerHandlerCounter(state, state.range(0));
    freeRecords(records);
}

/// What a dispatch benchmark calls of one scheduler.
struct SchedulerEntryPoints {
    uint32_t (*enableStatistics)(uint64_t handlerBudgetNs);
    uint32_t (*disableStatistics)();
    /// Registers a handler due on every pass.
    uint32_t (*registerEveryPass)(STickHandler** handle, const ITickReceiver* receiver);
    void (*onTick)(void* context);
    uint32_t (*unregister)(STickHandler** handle);
    uint32_t (*startEventCapture)();
    uint32_t (*stopEventCapture)();
    uint32_t (*readEvents)(STickEvent* events, uint32_t capacity, uint32_t* count, uint64_t* lost);
};

uint32_t registerWithIntervalOne(STickHandler** handle, const ITickReceiver* receiver) {
    return CTickScheduler_RegisterTickHandler(handle, receiver, 1, "bench");
}

uint32_t registerFast(STickHandler** handle, const ITickReceiver* receiver) {
    return CTickSchedulerFast_RegisterTickHandler(handle, receiver, "bench");
}

constexpr SchedulerEntryPoints kIntervalScheduler = {&CTickScheduler_EnableStatistics,
                                                     &CTickScheduler_DisableStatistics,
                                                     &registerWithIntervalOne,
                                                     &CTickScheduler_OnTick,
                                                     &CTickScheduler_UnregisterTickHandler,
                                                     &CTickScheduler_StartEventCapture,
                                                     &CTickScheduler_StopEventCapture,
                                                     &CTickScheduler_ReadEvents};

constexpr SchedulerEntryPoints kFastScheduler = {&CTickSchedulerFast_EnableStatistics,
                                                 &CTickSchedulerFast_DisableStatistics,
                                                 &registerFast,
                                                 &CTickSchedulerFast_OnTick,
                                                 &CTickSchedulerFast_UnregisterTickHandler,
                                                 &CTickSchedulerFast_StartEventCapture,
                                                 &CTickSchedulerFast_StopEventCapture,
                                                 &CTickSchedulerFast_ReadEvents};

/// state.range(0) handlers registered with one scheduler, each due on every
/// pass, for as long as the object lives.
class RegisteredHandlers {
public:
    RegisteredHandlers(const SchedulerEntryPoints& scheduler, int64_t count, const ITickReceiver& receiver)
        : entryPoints(scheduler), handles(static_cast<size_t>(count), nullptr) {
        for (STickHandler*& handle : handles) {
            entryPoints.registerEveryPass(&handle, &receiver);
        }
    }
    ~RegisteredHandlers() {
        for (STickHandler*& handle : handles) {
            entryPoints.unregister(&handle);
        }
    }
    RegisteredHandlers(const RegisteredHandlers&) = delete;
    RegisteredHandlers& operator=(const RegisteredHandlers&) = delete;

    size_t size() const { return handles.size(); }

private:
    const SchedulerEntryPoints& entryPoints;
    std::vector<STickHandler*> handles;
};

/// Marks the run as failed unless every handler was called on every pass.
void expectEveryHandlerCalled(benchmark::State& state, uint64_t calls, size_t handlers) {
    if (calls != static_cast<uint64_t>(state.iterations()) * handlers) {
        state.SkipWithError("a handler was not called on every pass");
    }
}

/// Nanoseconds that `run` takes, on the monotonic clock.
template <typename Run>
int64_t nanosecondsOf(Run&& run) {
    const auto start = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - start).count();
}

/// Walks the fast scheduler's own handler list with the same list calls as
/// its dispatch and calls every handler; `CheckDue` adds the test the
/// dispatch makes of every handler as it reaches it (enabled exactly 1, none
/// of its groups disabled). No mutex.
template <bool CheckDue>
void walkFastHandlerList() {
    CList* const list = &tickSchedulerFastModule.handlerList;
    CListCursor cursor = nullptr;
    if (CList_StartIterationFromHead(list, &cursor) == CLIST_END_OF_LIST) {
        return;
    }
    uint32_t status = 0;
    do {
        void* element = nullptr;
        status = CList_GetNext(list, &element, &cursor);
        const auto* record = static_cast<const STickHandler*>(element);
        if (CheckDue && (record == nullptr || record->enabled.load(std::memory_order_relaxed) != 1 ||
                         (record->groupMask.load(std::memory_order_relaxed) &
                          tickSchedulerFastModule.disabledGroupMask.load(std::memory_order_relaxed)) != 0)) {
            continue;
        }
        record->tickReceiver.onTick(record->tickReceiver.context);
    } while (status != CLIST_END_OF_LIST);
}

/// Walks CTickScheduler's own handler array and calls every handler, its
/// mutex released around each call as its pass does.
void walkSchedulerHandlersUnlocked() {
    std::unique_lock<std::mutex> lock(tickScheduler.tickMutex);
    for (const STickHandler* record : tickScheduler.tickHandlers) {
        lock.unlock();
        record->tickReceiver.onTick(record->tickReceiver.context);
        lock.lock();
    }
}

/// Sets a per-handler time counter from `totalNs` over the whole run.
void setPerHandlerTime(benchmark::State& state, const char* name, int64_t totalNs, int64_t handlers) {
    state.counters[name] = static_cast<double>(totalNs) / static_cast<double>(state.iterations() * handlers);
}

/// A dispatch against walks of the very records and list it dispatches:
/// every iteration times, one after the other, each walk in `walks` and a
/// pass of `Scheduler` over the same registered handlers, so that all see
/// the same memory at the same moment. Reports ns per handler of each
/// (counters named by `walks` and "dispatch_ns") and the dispatch's time
/// against the first walk's ("ratio"). The clock is read around each walk,
/// which adds some 20 ns a walk: read it at 1 000 handlers and more.
template <const SchedulerEntryPoints& Scheduler, size_t Walks>
void runAgainstOwnWalks(benchmark::State& state, const std::pair<const char*, void (*)()> (&walks)[Walks]) {
    uint64_t counter = 0;
    const ITickReceiver receiver = bench::countingReceiver(&counter);
    const RegisteredHandlers handlers(Scheduler, state.range(0), receiver);
    int64_t walkNs[Walks] = {};
    int64_t dispatchNs = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < Walks; ++i) {
            walkNs[i] += nanosecondsOf(walks[i].second);
        }
        dispatchNs += nanosecondsOf([] { Scheduler.onTick(nullptr); });
        benchmark::ClobberMemory();
    }
    expectEveryHandlerCalled(state, counter, handlers.size() * (Walks + 1));
    for (size_t i = 0; i < Walks; ++i) {
        setPerHandlerTime(state, walks[i].first, walkNs[i], state.range(0));
    }
    setPerHandlerTime(state, "dispatch_ns", dispatchNs, state.range(0));
    state.counters["ratio"] = walkNs[0] > 0 ? static_cast<double>(dispatchNs) / static_cast<double>(walkNs[0]) : 0.0;
}

/// The fast dispatch against walking its own handler list, without and with
/// the due test.
void BM_CTickSchedulerFast_AgainstItsListWalk(benchmark::State& state) {
    static const std::pair<const char*, void (*)()> kWalks[] = {{"walk_ns", &walkFastHandlerList<false>},
                                                                {"walk_due_ns", &walkFastHandlerList<true>}};
    runAgainstOwnWalks<kFastScheduler>(state, kWalks);
}

/// CTickScheduler's pass against walking its own records with its mutex
/// released around each call.
void BM_CTickScheduler_AgainstItsUnlockLockWalk(benchmark::State& state) {
    static const std::pair<const char*, void (*)()> kWalks[] = {
        {"unlock_lock_walk_ns", &walkSchedulerHandlersUnlocked}};
    runAgainstOwnWalks<kIntervalScheduler>(state, kWalks);
}

/// Who watches the measured passes.
enum class Watch { Nobody, Statistics, Capture };

/// Empties the scheduler's event ring, outside the timed region: the
/// capture benchmark times what the passes pay, not the reader.
void drainEvents(const SchedulerEntryPoints& scheduler, std::vector<STickEvent>& buffer) {
    uint32_t count = 0;
    do {
        scheduler.readEvents(buffer.data(), static_cast<uint32_t>(buffer.size()), &count, nullptr);
    } while (count == buffer.size());
}

/// One scheduler's pass over state.range(0) handlers, watched by nobody, by
/// its statistics, or by its event capture (whose ring is drained, untimed,
/// before it fills). The entry points are compile-time constants, so the
/// pass is a direct call as in a client.
template <const SchedulerEntryPoints& Scheduler, Watch Watcher>
void BM_OnTick(benchmark::State& state) {
    if (Watcher == Watch::Statistics) {
        Scheduler.enableStatistics(0);
    }
    std::vector<STickEvent> events(TICK_EVENT_CAPACITY);
    const int64_t eventsPerPass = 2 + 2 * state.range(0);
    const int64_t passesPerDrain = std::max<int64_t>(1, TICK_EVENT_CAPACITY / eventsPerPass - 1);
    if (Watcher == Watch::Capture && eventsPerPass > TICK_EVENT_CAPACITY) {
        state.SkipWithError("one pass writes more events than the ring holds");
        Scheduler.disableStatistics();
        return;
    }
    if (Watcher == Watch::Capture && Scheduler.startEventCapture() != 0) {
        state.SkipWithError("event capture could not be started");
        return;
    }
    uint64_t counter = 0;
    const ITickReceiver receiver = bench::countingReceiver(&counter);
    const RegisteredHandlers handlers(Scheduler, state.range(0), receiver);
    int64_t sinceDrain = 0;
    for (auto _ : state) {
        Scheduler.onTick(nullptr);
        if (Watcher == Watch::Capture && ++sinceDrain == passesPerDrain) {
            state.PauseTiming();
            drainEvents(Scheduler, events);
            sinceDrain = 0;
            state.ResumeTiming();
        }
    }
    expectEveryHandlerCalled(state, counter, handlers.size());
    uint64_t lost = 0;
    uint32_t count = 0;
    Scheduler.readEvents(events.data(), 0, &count, &lost);
    if (lost != 0) {
        state.SkipWithError("the capture lost events: the drain came too late");
    }
    setPerHandlerCounter(state, state.range(0));
    Scheduler.disableStatistics();
    Scheduler.stopEventCapture();
    drainEvents(Scheduler, events);
}

/// Runs `benchmark` once for each handler count in `counts`.
void withHandlerCounts(benchmark::internal::Benchmark* benchmark, std::initializer_list<int64_t> counts) {
    for (const int64_t count : counts) {
        benchmark->Arg(count);
    }
    benchmark->ArgName("handlers");
}

void handlerCounts(benchmark::internal::Benchmark* benchmark) { withHandlerCounts(benchmark, {1, 100, 1000, 10000}); }

/// The counts whose passes fit the event ring: a pass of more than 8 191
/// handlers writes more events than it holds.
void capturedHandlerCounts(benchmark::internal::Benchmark* benchmark) { withHandlerCounts(benchmark, {1, 100, 1000}); }

/// The counts at which the paired benchmarks' clock readings, some 20 ns a
/// walk, stay below 1 % of a walk.
void largeHandlerCounts(benchmark::internal::Benchmark* benchmark) { withHandlerCounts(benchmark, {1000, 10000}); }

/// Registers BM_OnTick of `Scheduler` as `name`, once with each watch:
/// nobody, the statistics (`name`_Timed), the event capture (`name`_Captured).
template <const SchedulerEntryPoints& Scheduler>
bool registerOnTick(const std::string& name) {
    benchmark::RegisterBenchmark(name.c_str(), BM_OnTick<Scheduler, Watch::Nobody>)->Apply(handlerCounts);
    benchmark::RegisterBenchmark((name + "_Timed").c_str(), BM_OnTick<Scheduler, Watch::Statistics>)
        ->Apply(handlerCounts);
    benchmark::RegisterBenchmark((name + "_Captured").c_str(), BM_OnTick<Scheduler, Watch::Capture>)
        ->Apply(capturedHandlerCounts);
    return true;
}

// In this order: the floors each scheduler's dispatch is read against come
// before it.
BENCHMARK(BM_Floor_PlainCalls)->Apply(handlerCounts);
BENCHMARK(BM_Floor_ListWalkCalls)->Apply(handlerCounts);
[[maybe_unused]] const bool fastOnTickRegistered = registerOnTick<kFastScheduler>("BM_CTickSchedulerFast_OnTick");
BENCHMARK(BM_Floor_UnlockLockCalls)->Apply(handlerCounts);
[[maybe_unused]] const bool intervalOnTickRegistered = registerOnTick<kIntervalScheduler>("BM_CTickScheduler_OnTick");
BENCHMARK(BM_CTickSchedulerFast_AgainstItsListWalk)->Apply(largeHandlerCounts);
BENCHMARK(BM_CTickScheduler_AgainstItsUnlockLockWalk)->Apply(largeHandlerCounts);

}  // namespace

int main(int argc, char** argv) {
    // The fast module needs its list and mutex, which Initialize sets up (it
    // registers with the reference platform's module manager on the way).
    // Its oscillator never starts, and the CTickScheduler one is not
    // started here either: every pass below is driven by the benchmark.
    if (CTickSchedulerFast_Initialize() != 0) {
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    CTickSchedulerFast_Uninitialize();
    return 0;
}
