// The exported tick grid queries of both modules.
#include "CTickSchedulerFastModule.h"
#include "CTickSchedulerModule.h"
#include "PublishedGrid.h"
#include "TickGrid.h"
#include "TickResultCodes.h"

namespace {

uint32_t copyGrid(const TickOscillator& oscillator, STickGrid* grid) {
    if (grid == nullptr || grid->size < sizeof(STickGrid)) {
        return TickResult::NullArgument;
    }
    const zyn_ts::GridSnapshot snapshot = zyn_ts::readGrid(oscillator);
    grid->running = snapshot.running ? 1u : 0u;
    grid->generation = snapshot.generation;
    grid->originNs = snapshot.originNs;
    grid->periodNs = snapshot.periodNs;
    return snapshot.running ? TickResult::Success : TickResult::GridNotRunning;
}

}  // namespace

extern "C" uint32_t CTickScheduler_GetTickGrid(STickGrid* grid) { return copyGrid(tickScheduler.tickOscillator, grid); }

extern "C" uint32_t CTickSchedulerFast_GetTickGrid(STickGrid* grid) {
    return copyGrid(tickSchedulerFastModule.tickOscillator, grid);
}
