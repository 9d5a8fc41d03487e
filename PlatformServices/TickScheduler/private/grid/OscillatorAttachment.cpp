#include "OscillatorAttachment.h"

#include <type_traits>

#include "ZynSupport/GuardedMutex.h"

namespace zyn_ts {
namespace {

// Both constant-initialised and never destroyed, so that the modules' static
// states, constructed at load and destroyed at unload in other sources,
// attach and detach in any order of initialisation and destruction.
static_assert(std::is_trivially_destructible<zyn_support::GuardedMutex>::value,
              "the list's mutex must outlive every static record");
zyn_support::GuardedMutex attachmentsMutex;
/// Newest first; each record's `next` is guarded by the same mutex.
OscillatorAttachment* attachments ZYN_GUARDED_BY(attachmentsMutex) = nullptr;

}  // namespace

OscillatorAttachment::OscillatorAttachment(const TickOscillator* oscillator, int64_t nominalPeriodNs)
    : wake(nominalPeriodNs), attachedTo(oscillator) {
    const zyn_support::GuardedLock lock(attachmentsMutex);
    next = attachments;
    attachments = this;
}

OscillatorAttachment::~OscillatorAttachment() {
    const zyn_support::GuardedLock lock(attachmentsMutex);
    for (OscillatorAttachment** link = &attachments; *link != nullptr; link = &(*link)->next) {
        if (*link == this) {
            *link = next;
            return;
        }
    }
}

OscillatorAttachment* findAttachment(const TickOscillator& oscillator) {
    const zyn_support::GuardedLock lock(attachmentsMutex);
    for (OscillatorAttachment* record = attachments; record != nullptr; record = record->next) {
        if (record->attachedTo == &oscillator) {
            return record;
        }
    }
    return nullptr;
}

}  // namespace zyn_ts
