/// @file
/// STickHandler: the record of one registered tick handler.
#pragma once

#include <atomic>
#include <cstdint>

#include "ITickReceiver.h"

/// The record of one registered tick handler.
///
/// Both schedulers use it. Each record is a heap block created by the
/// scheduler's registration; its address is the client's handle for every
/// later operation on the handler. Clients must not write the record directly.
///
/// The fields that a client thread may write while the tick thread reads them
/// (`enabled`, `prio`, `currentInterval`, `groupMask`) are relaxed atomics of
/// the same size as a plain 32-bit word, so the layout is that of the plain
/// record on every target.
struct STickHandler {
    /// What is called: `tickReceiver.onTick(tickReceiver.context)`.
    ITickReceiver tickReceiver;
    /// Non-zero while the handler may be called (the fast scheduler calls it
    /// only while it is exactly 1).
    std::atomic<uint32_t> enabled;
    /// The handler is due once every `tickInterval` ticks (0 behaves like 1).
    uint32_t tickInterval;
    /// Ordering key within a tick: lower runs earlier.
    std::atomic<int32_t> prio;
    /// Phase counter: the handler is due on a tick on which it is 0.
    std::atomic<uint32_t> currentInterval;
    /// The handler's name, at most 31 characters, always NUL-terminated.
    char name[32];
    /// Tick groups the handler belongs to, one bit a group (bits 0 and 1).
    std::atomic<uint32_t> groupMask;
};

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t), "atomic fields keep the record's layout");
static_assert(sizeof(std::atomic<int32_t>) == sizeof(int32_t), "atomic fields keep the record's layout");
