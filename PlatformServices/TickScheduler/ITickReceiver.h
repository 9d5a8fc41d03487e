/// @file
/// The callback record through which a tick is delivered.
#pragma once

extern "C" {

/// A tick is delivered as `onTick(context)`. The record is owned by the
/// caller; whoever keeps a pointer to it needs it alive while ticks flow.
struct ITickReceiver {
    /// Handed to `onTick` unchanged.
    void* context;
    /// Called for each tick.
    void (*onTick)(void* context);
};
}
