// Costs of the CTickScheduler operations that client threads call: the tick
// lock taken uncontended, a register plus unregister pair, and a priority
// change among 1000 registered handlers.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "CTickScheduler.h"
#include "TickFunctions.h"

namespace {

/// Registers `count` handlers; unregisters them when it goes away.
class RegisteredHandlers {
public:
    explicit RegisteredHandlers(int64_t count) : handles(static_cast<size_t>(count), nullptr) {
        const ITickReceiver receiver = bench::countingReceiver(&counter);
        for (STickHandler*& handle : handles) {
            CTickScheduler_RegisterTickHandler(&handle, &receiver, 1, "bench");
        }
    }
    ~RegisteredHandlers() {
        for (STickHandler*& handle : handles) {
            CTickScheduler_UnregisterTickHandler(&handle);
        }
    }
    RegisteredHandlers(const RegisteredHandlers&) = delete;
    RegisteredHandlers& operator=(const RegisteredHandlers&) = delete;

    STickHandler* middle() const { return handles[handles.size() / 2]; }

private:
    uint64_t counter = 0;
    std::vector<STickHandler*> handles;
};

void BM_TickLock_Uncontended(benchmark::State& state) {
    for (auto _ : state) {
        std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
        benchmark::DoNotOptimize(lock.owns_lock());
    }
}

void BM_RegisterUnregisterPair(benchmark::State& state) {
    const RegisteredHandlers others(state.range(0));
    uint64_t counter = 0;
    const ITickReceiver receiver = bench::countingReceiver(&counter);
    for (auto _ : state) {
        STickHandler* handle = nullptr;
        CTickScheduler_RegisterTickHandler(&handle, &receiver, 1, "pair");
        if (CTickScheduler_UnregisterTickHandler(&handle) != 0 || handle != nullptr) {
            state.SkipWithError("unregister failed");
            break;
        }
    }
}

void BM_SetTickPriority(benchmark::State& state) {
    const RegisteredHandlers handlers(state.range(0));
    STickHandler* moved = handlers.middle();
    // Alternating keeps every call a real move: an unchanged priority
    // returns at once.
    int32_t priority = 0;
    for (auto _ : state) {
        priority = priority == 0 ? 9 : 0;
        if (CTickScheduler_SetTickPriority(moved, priority) != 0) {
            state.SkipWithError("SetTickPriority failed");
            break;
        }
    }
}

BENCHMARK(BM_TickLock_Uncontended);
BENCHMARK(BM_RegisterUnregisterPair)->Arg(0)->Arg(1000)->ArgName("others");
BENCHMARK(BM_SetTickPriority)->Arg(1000)->ArgName("handlers");

}  // namespace

BENCHMARK_MAIN();
