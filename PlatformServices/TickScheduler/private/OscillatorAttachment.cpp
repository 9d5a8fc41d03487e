#include "OscillatorAttachment.h"

#include <mutex>
#include <type_traits>

namespace zyn_ts {
namespace {

// Both constant-initialised and never destroyed, so that the modules' static
// states, constructed at load and destroyed at unload in other sources,
// attach and detach in any order of initialisation and destruction.
static_assert(std::is_trivially_destructible<std::mutex>::value, "the list's mutex must outlive every static record");
std::mutex attachmentsMutex;
/// Newest first.
OscillatorAttachment* attachments = nullptr;

}  // namespace

OscillatorAttachment::OscillatorAttachment(const TickOscillator* oscillator, int64_t nominalPeriodNs)
    : wake(nominalPeriodNs), attachedTo(oscillator) {
    const std::lock_guard<std::mutex> lock(attachmentsMutex);
    next = attachments;
    attachments = this;
}

OscillatorAttachment::~OscillatorAttachment() {
    const std::lock_guard<std::mutex> lock(attachmentsMutex);
    for (OscillatorAttachment** link = &attachments; *link != nullptr; link = &(*link)->next) {
        if (*link == this) {
            *link = next;
            return;
        }
    }
}

OscillatorAttachment* findAttachment(const TickOscillator& oscillator) {
    const std::lock_guard<std::mutex> lock(attachmentsMutex);
    for (OscillatorAttachment* record = attachments; record != nullptr; record = record->next) {
        if (record->attachedTo == &oscillator) {
            return record;
        }
    }
    return nullptr;
}

}  // namespace zyn_ts
