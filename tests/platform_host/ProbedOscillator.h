// A tick oscillator on the reference platform whose ticks call a probe of
// the test's own: what the tick thread sees of itself.
#pragma once

#include <gtest/gtest.h>

#include "ETickDelay.h"
#include "ETickPriority.h"
#include "ITickReceiver.h"
#include "TickOscillator.h"

/// An oscillator initialised with `delay` and `priority`, every tick of which
/// calls `onTick` with `probe`; not started.
template <class Probe>
struct ProbedOscillator {
    ProbedOscillator(ETickDelay delay, ETickPriority priority, void (*onTick)(void*)) : receiver{&probe, onTick} {
        EXPECT_EQ(oscillator.initialize(delay, priority), 0u);
        EXPECT_EQ(oscillator.registerOnTick(&receiver), 0u);
    }

    Probe probe;
    ITickReceiver receiver;
    TickOscillator oscillator;
};
