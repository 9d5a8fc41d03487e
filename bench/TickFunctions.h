// The trivial tick function the benchmarks dispatch, and the handler set
// they measure with.
//
// It lives in its own translation unit so that no loop can inline it: every
// call in a benchmark, and in its floor, is a real indirect call.
#pragma once

#include <cstdint>
#include <vector>

#include "ITickReceiver.h"
#include "STickHandler.h"

namespace bench {

/// Adds one to the uint64_t that `context` points to.
void countTick(void* context);

/// A receiver that counts into `counter`.
inline ITickReceiver countingReceiver(uint64_t* counter) { return ITickReceiver{counter, &countTick}; }

}  // namespace bench
