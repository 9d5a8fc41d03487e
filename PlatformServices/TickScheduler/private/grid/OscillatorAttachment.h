// What an owner hands to its oscillator's thread without touching the
// oscillator object.
//
// TickOscillator's layout and members are part of the exported interface, so
// the per-oscillator state its thread maintains for the owner lives in an
// attachment the owner keeps: the grid the thread publishes today, and any
// such state added later goes beside it. The owner attaches the record before
// it starts the oscillator; the thread looks it up once, when it starts (a
// short list under a mutex: thread start-up, not the tick path), and from
// then on works through the pointer it holds. An oscillator without an
// attachment runs and ticks all the same and publishes nothing.
#pragma once

#include "PrecisionWake.h"
#include "PublishedGrid.h"

class TickOscillator;

namespace zyn_ts {

/// Per-oscillator state kept by the owner and maintained by the oscillator's
/// thread. Constructing it attaches it to its oscillator; destroying it
/// detaches it.
///
/// Lifetime: a thread that started while the record was attached keeps using
/// it until its loop ends, so the record must outlive every such thread: stop
/// (join) the oscillator before the record goes. In a class that holds both,
/// declaring the record before the oscillator does that, since the
/// oscillator's destructor joins its thread. If several records are attached
/// to one oscillator, a starting thread takes the one attached last.
class OscillatorAttachment {
public:
    /// Attaches to `oscillator`, which need not be constructed yet (only its
    /// address is kept). Takes the list's mutex.
    /// `nominalPeriodNs`: the owner's period, which bounds a fixed lead.
    explicit OscillatorAttachment(const TickOscillator* oscillator, int64_t nominalPeriodNs = 6000000);
    /// Detaches. Takes the list's mutex. The oscillator's thread must have
    /// ended (see above).
    ~OscillatorAttachment();
    OscillatorAttachment(const OscillatorAttachment&) = delete;
    OscillatorAttachment& operator=(const OscillatorAttachment&) = delete;

    /// The oscillator this record is attached to.
    const TickOscillator* oscillator() const { return attachedTo; }

    /// The grid the oscillator's thread publishes; the owner reads it.
    PublishedGrid grid;

    /// The precision wake: the owner's threads switch it and read its
    /// figures; the oscillator's thread applies it and writes the figures.
    PrecisionWake wake;

private:
    friend OscillatorAttachment* findAttachment(const TickOscillator& oscillator);

    const TickOscillator* attachedTo;
    OscillatorAttachment* next = nullptr;
};

/// The record attached last to `oscillator`, or null. For the oscillator's
/// thread as it starts: takes the list's mutex, so never on the tick path.
OscillatorAttachment* findAttachment(const TickOscillator& oscillator);

}  // namespace zyn_ts
