// What both modules do with their oscillator when the module manager
// announces the configuration phase.
#pragma once

#include "ETickDelay.h"
#include "ETickPriority.h"
#include "ITickReceiver.h"
#include "TickOscillator.h"

namespace zyn_ts {

/// Initialises `oscillator` with `delay` and `priority`, points `receiver` at
/// `onTick` with `context` and registers it. Failures are not reported here:
/// an oscillator that could not be set up refuses to start later.
void configureOscillator(TickOscillator& oscillator, ETickDelay delay, ETickPriority priority, ITickReceiver& receiver,
                         void* context, void (*onTick)(void*));

}  // namespace zyn_ts
