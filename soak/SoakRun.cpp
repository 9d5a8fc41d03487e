#include "SoakRun.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "CTickScheduler.h"
#include "CTickSchedulerFast.h"
#include "CTickSchedulerFastModule.h"
#include "CTickSchedulerModule.h"
#include "ChurnClient.h"
#include "HandlerSlot.h"
#include "ITickScheduler.h"
#include "ITickSchedulerFast.h"
#include "InterfaceBroker.h"
#include "LiveBlocks.h"
#include "MemoryInUse.h"
#include "PassClock.h"
#include "PlatformHost/ModuleManagerHost.h"
#include "PlatformHost/TraceHost.h"
#include "TickResultCodes.h"
#include "Violations.h"

namespace soak {

namespace {

constexpr uint32_t kSchedulerPeriodNs = 6000000;
constexpr uint32_t kFastPeriodNs = 1000000;
constexpr int32_t kMetronomePriority = -100;

std::atomic<uint64_t> tracedLines{0};

bool check(bool condition, const char* what) {
    if (!condition) {
        Violations::instance().report("%s", what);
    }
    return condition;
}

void waitFor(const std::function<bool()>& condition, const char* what) {
    for (int i = 0; i < 10000 && !condition(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    check(condition(), what);
}

/// Every line at the levels the soak enables (errors and warnings) is a
/// finding; the first ones are shown.
void watchTraces() {
    platform_host::setTraceLevel("ZYN.TS", 2);
    platform_host::setTraceSink([](const std::string& line) {
        if (tracedLines.fetch_add(1) < 20) {
            std::fprintf(stderr, "TRACED: %s\n", line.c_str());
        }
    });
}

struct Schedulers {
    ITickScheduler* scheduler = nullptr;
    ITickSchedulerFast* fast = nullptr;
};

Schedulers startUp() {
    const ETickPriority priority = TICK_PRIORITY_NORMAL;
    check(CTickScheduler_Initialize(&priority) == TickResult::Success, "CTickScheduler_Initialize failed");
    check(CTickSchedulerFast_Initialize() == TickResult::Success, "CTickSchedulerFast_Initialize failed");
    for (const platform_host::PhaseCallResult& call : platform_host::runStartup()) {
        if (call.result != TickResult::Success) {
            Violations::instance().report("phase %u of module %u returned %u", call.phase, call.moduleId, call.result);
        }
    }
    check(tickScheduler.tickOscillator.isRunning(), "the scheduler's oscillator did not start at phase 14");
    check(tickSchedulerFastModule.tickOscillator.start() == TickResult::Success,
          "the fast scheduler's oscillator did not start");
    Schedulers apis;
    InterfaceBroker* broker = InterfaceBroker::getInstance();
    apis.scheduler = dynamic_cast<ITickScheduler*>(broker->getInterface("ITickScheduler"));
    apis.fast = dynamic_cast<ITickSchedulerFast*>(broker->getInterface("ITickSchedulerFast"));
    return apis;
}

/// Brings the library's own bookkeeping to the size the churn will need, so
/// that the heap's starting level is taken with it in place: as many
/// handlers at once as the soak will ever have, all removing themselves in
/// the same pass. The fast module cannot be frozen, so its handlers are
/// called while the later ones register; they hold back their removal until
/// every handle is published, or a slow registration would leave the peak,
/// and with it the size of the bookkeeping, short of the churn's.
void warmUp(const SchedulerApi& api, size_t handlers) {
    PassClock idle(nullptr);
    std::vector<std::unique_ptr<HandlerSlot>> slots;
    if (!api.fast) {
        check(api.scheduler->Freeze() == TickResult::Success, "Freeze failed");
    }
    for (size_t i = 0; i < handlers; ++i) {
        slots.push_back(std::make_unique<HandlerSlot>());
        HandlerSlot& slot = *slots.back();
        slot.clock = &idle;
        std::snprintf(slot.name, sizeof(slot.name), "warm-up-%zu", i);
        slot.selfRemoving = true;
        slot.removeAfterCalls = 1;
        slot.removeFromTick = api.removeFromTick();
        slot.log.begin(slot.name, 1, Applies{true}, 0);
        slot.state.store(static_cast<int>(SlotState::Live));
        const ITickReceiver receiver = slot.receiver();
        check(api.registerHandler(&slot.handle, &receiver, 1, slot.name) == TickResult::Success,
              "warm-up registration failed");
    }
    for (auto& slot : slots) {
        slot->handlePublished.store(true);
    }
    if (!api.fast) {
        check(api.scheduler->Unfreeze() == TickResult::Success, "Unfreeze failed");
    }
    for (auto& slot : slots) {
        waitFor([&] { return slot->selfRemoved.load(); }, "a warm-up handler did not remove itself");
    }
}

/// The C library keeps the stacks of ended threads, with some bookkeeping on
/// the heap, for the next threads to reuse: starting as many threads as the
/// soak will run at once puts that bookkeeping in place before the heap's
/// starting level is taken.
void warmUpThreads(size_t count) {
    std::atomic<size_t> running{0};
    std::vector<std::thread> threads;
    for (size_t i = 0; i < count; ++i) {
        threads.emplace_back([&running, count] {
            running.fetch_add(1);
            while (running.load() < count) {
                std::this_thread::yield();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

struct Metronome {
    explicit Metronome(GridQuery query) : clock(query) {}
    PassClock clock;
    STickHandler* handle = nullptr;
};

void startMetronome(const SchedulerApi& api, Metronome& metronome) {
    const ITickReceiver receiver = metronome.clock.receiver();
    check(api.registerHandler(&metronome.handle, &receiver, 1, api.fast ? "fast-metronome" : "tick-metronome") ==
              TickResult::Success,
          "metronome registration failed");
    if (!api.fast) {
        check(api.scheduler->SetTickPriority(metronome.handle, kMetronomePriority) == TickResult::Success,
              "metronome priority failed");
    }
}

/// How many grid points may pass without a pass: a share of the points the
/// run spanned. A loaded host, and a sanitizer that slows every pass, cost a
/// point now and then; an oscillator that drops points, or drifts off the
/// grid it published, loses them steadily.
constexpr uint64_t kSkippedPointsPerThousand = 5;

/// The longest gap between two passes may span this share of the run's grid
/// points, and at least kGapFloorNs: a stall of the host fits, an oscillator
/// that stops for a while or ticks at a fraction of its rate does not.
constexpr uint64_t kLongestGapPerThousand = 10;
constexpr int64_t kGapFloorNs = 300 * 1000 * 1000;

/// Every pass on a grid point of its own, none before grid point 1, all on
/// the grid the oscillator published at its start, and few grid points
/// without a pass over the whole run: counted from the published origin, so
/// the check is exact whatever the length of the run.
bool checkGrid(const char* name, const GridRecord& grid, int64_t periodNs) {
    if (grid.passes < 2) {
        Violations::instance().report("%s: only %" PRIu64 " passes", name, grid.passes);
        return false;
    }
    const auto pointsSpanned = static_cast<uint64_t>(grid.lastPoint - grid.firstPoint + 1);
    const uint64_t skippedAllowed = pointsSpanned * kSkippedPointsPerThousand / 1000;
    const auto longestGapPoints = static_cast<uint64_t>(grid.longestGapNs / periodNs);
    const uint64_t gapAllowed =
        std::max(pointsSpanned * kLongestGapPerThousand / 1000, static_cast<uint64_t>(kGapFloorNs / periodNs));
    std::printf("%-9s passes %" PRIu64 " on grid points %" PRId64 " to %" PRId64
                " of a %.3f ms grid, generation %" PRIu64 ": points without a pass %" PRIu64 " (%" PRIu64
                " allowed), longest gap %.3f ms (%" PRIu64 " points, %" PRIu64 " allowed)\n",
                name, grid.passes, grid.firstPoint, grid.lastPoint, static_cast<double>(grid.grid.periodNs) / 1e6,
                grid.grid.generation, grid.skippedPoints, skippedAllowed, static_cast<double>(grid.longestGapNs) / 1e6,
                longestGapPoints, gapAllowed);
    bool passed = true;
    const auto fail = [&](uint64_t count, const char* what) {
        if (count != 0) {
            Violations::instance().report("%s: %" PRIu64 " %s", name, count, what);
            passed = false;
        }
    };
    fail(grid.unpublished, "passes found no running grid");
    fail(grid.gridChanges, "passes found another grid than the first pass");
    fail(grid.beforePointOne, "passes before grid point 1");
    fail(grid.sharedPoints, "passes on a grid point that already had one");
    fail(grid.grid.periodNs != periodNs ? 1 : 0, "grid with a wrong period");
    fail(grid.skippedPoints > skippedAllowed ? grid.skippedPoints : 0, "grid points without a pass, too many");
    fail(longestGapPoints > gapAllowed ? longestGapPoints : 0, "grid points in the longest gap, too many");
    return passed;
}

struct Client {
    std::unique_ptr<ChurnClient> churn;
    const char* label;
};

void printStats(const char* label, const ChurnStats& stats) {
    std::printf("%-22s registrations %8" PRIu64 ", self-removals %7" PRIu64 ", operations %9" PRIu64
                ", calls checked %10" PRIu64 "\n",
                label, stats.registrations, stats.selfRemovals, stats.operations, stats.callsChecked);
}

}  // namespace

int runSoak(const SoakOptions& options) {
    watchAllocations();
    watchTraces();
    const Schedulers apis = startUp();
    if (apis.scheduler == nullptr || apis.fast == nullptr) {
        std::fprintf(stderr, "the interfaces are not in the broker\n");
        return 1;
    }
    const SchedulerApi scheduler{false, apis.scheduler, nullptr};
    const SchedulerApi fast{true, nullptr, apis.fast};
    warmUp(scheduler, 1 + 3 * ChurnClient::capacity());
    warmUp(fast, 1 + 2 * ChurnClient::capacity());

    Metronome schedulerMetronome(&CTickScheduler_GetTickGrid);
    Metronome fastMetronome(&CTickSchedulerFast_GetTickGrid);
    startMetronome(scheduler, schedulerMetronome);
    startMetronome(fast, fastMetronome);
    waitFor([&] { return schedulerMetronome.clock.current() > 10 && fastMetronome.clock.current() > 10; },
            "the metronomes do not tick");

    constexpr size_t kClients = 5;
    std::vector<ChurnStats> stats;
    stats.reserve(kClients);
    warmUpThreads(kClients);
    // Armed before the first reading and disarmed before the last, so every
    // block the difference counts is among those recorded.
    armLiveBlocks();
    const size_t startingMemory = memoryInUse();
    {
        std::vector<Client> clients;
        clients.push_back({std::make_unique<ChurnClient>(scheduler, schedulerMetronome.clock,
                                                         ChurnClient::Mode::Handlers, 0, options.seed * 7 + 0),
                           "tick handlers 0"});
        clients.push_back({std::make_unique<ChurnClient>(scheduler, schedulerMetronome.clock,
                                                         ChurnClient::Mode::Handlers, 1, options.seed * 7 + 1),
                           "tick handlers 1"});
        clients.push_back({std::make_unique<ChurnClient>(scheduler, schedulerMetronome.clock, ChurnClient::Mode::Groups,
                                                         2, options.seed * 7 + 2),
                           "tick groups"});
        clients.push_back({std::make_unique<ChurnClient>(fast, fastMetronome.clock, ChurnClient::Mode::Handlers, 3,
                                                         options.seed * 7 + 3),
                           "fast handlers"});
        clients.push_back({std::make_unique<ChurnClient>(fast, fastMetronome.clock, ChurnClient::Mode::Groups, 4,
                                                         options.seed * 7 + 4),
                           "fast groups"});

        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        for (Client& client : clients) {
            ChurnClient* churn = client.churn.get();
            threads.emplace_back([churn, &stop] { churn->run(stop); });
        }
        const auto begin = std::chrono::steady_clock::now();
        const auto end = begin + std::chrono::seconds(options.seconds);
        auto nextReport = begin + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            if (std::chrono::steady_clock::now() >= nextReport) {
                nextReport += std::chrono::seconds(60);
                std::fprintf(stderr, "soak: %" PRIu64 " s, %" PRIu64 " violations so far\n",
                             static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(
                                                       std::chrono::steady_clock::now() - begin)
                                                       .count()),
                             Violations::instance().count());
            }
        }
        stop.store(true);
        for (std::thread& thread : threads) {
            thread.join();
        }
        // The statistics go into storage reserved before the start, so
        // nothing of the soak's own is left on the heap below.
        for (Client& client : clients) {
            stats.push_back(client.churn->stats());
        }
    }
    disarmLiveBlocks();
    const size_t endingMemory = memoryInUse();

    STickHandler* schedulerHandle = schedulerMetronome.handle;
    STickHandler* fastHandle = fastMetronome.handle;
    check(apis.scheduler->UnregisterTickHandler(&schedulerHandle) == TickResult::Success,
          "metronome unregistration failed");
    check(apis.fast->UnregisterTickHandler(&fastHandle) == TickResult::Success, "metronome unregistration failed");
    platform_host::runShutdown();
    check(!tickScheduler.tickOscillator.isRunning() && !tickSchedulerFastModule.tickOscillator.isRunning(),
          "an oscillator still runs after shut-down");

    static const char* const labels[] = {"tick handlers 0", "tick handlers 1", "tick groups", "fast handlers",
                                         "fast groups"};
    for (size_t i = 0; i < stats.size(); ++i) {
        printStats(labels[i], stats[i]);
    }
    bool passed = checkGrid("scheduler", schedulerMetronome.clock.grid(), kSchedulerPeriodNs);
    passed = checkGrid("fast", fastMetronome.clock.grid(), kFastPeriodNs) && passed;
    std::printf("heap in use (%s): %zu bytes at the start, %zu at the end\n", memoryCounter(), startingMemory,
                endingMemory);
    if (endingMemory != startingMemory) {
        Violations::instance().report("heap in use changed by %lld bytes",
                                      static_cast<long long>(endingMemory) - static_cast<long long>(startingMemory));
        std::fprintf(stderr, "blocks allocated during the run and still live:\n");
        printLiveBlocks();
    }
    if (tracedLines.load() != 0) {
        Violations::instance().report("%" PRIu64 " error or warning lines traced", tracedLines.load());
    }
    std::printf("violations: %" PRIu64 "\n", Violations::instance().count());
    return Violations::instance().count() == 0 ? 0 : 1;
}

}  // namespace soak
