// The exported tick grid queries of both modules. Each reads the grid record
// of its own module state, which only that module's oscillator thread writes.
#include "CTickSchedulerFastModule.h"
#include "CTickSchedulerModule.h"
#include "PublishedGrid.h"
#include "TickGrid.h"
#include "TickResultCodes.h"

namespace {

uint32_t copyGrid(const zyn_ts::PublishedGrid& published, STickGrid* grid) {
    if (grid == nullptr || grid->size < sizeof(STickGrid)) {
        return TickResult::NullArgument;
    }
    // A read that gave up (the thread republished its grid many times while
    // this one was off its CPU) leaves the all-zero record: reported as not
    // running, which a caller already handles by asking again later.
    zyn_ts::GridSnapshot snapshot;
    (void)published.read(snapshot);
    grid->running = snapshot.running ? 1u : 0u;
    grid->generation = snapshot.generation;
    grid->originNs = snapshot.originNs;
    grid->periodNs = snapshot.periodNs;
    return snapshot.running ? TickResult::Success : TickResult::GridNotRunning;
}

}  // namespace

extern "C" uint32_t CTickScheduler_GetTickGrid(STickGrid* grid) {
    return copyGrid(tickScheduler.oscillatorAttachment.grid, grid);
}

extern "C" uint32_t CTickSchedulerFast_GetTickGrid(STickGrid* grid) {
    return copyGrid(tickSchedulerFastModule.oscillatorAttachment.grid, grid);
}
