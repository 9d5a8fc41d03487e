#include "ParkedOscillator.h"

#include <time.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "CTickSchedulerModule.h"

namespace zyn_fuzz::sched {
namespace {

struct Parking {
    std::mutex mutex;
    std::condition_variable parkedChanged;
    bool parked = false;
    bool receiverHeld = false;
    ITickReceiver* heldReceiver = nullptr;
};

// Never destroyed: a thread may still be parked while the process exits.
Parking& parking() {
    static Parking* const instance = new Parking;
    return *instance;
}

// How often the parked thread looks whether the oscillator was stopped: the
// stop only clears the oscillator's flag, then joins.
constexpr std::chrono::microseconds kStopPollInterval{200};

}  // namespace

bool ParkedOscillator::waitUntilParked(unsigned seconds) {
    Parking& p = parking();
    std::unique_lock<std::mutex> lock(p.mutex);
    const bool parked = p.parkedChanged.wait_for(lock, std::chrono::seconds(seconds), [&p] { return p.parked; });
    p.parked = false;
    return parked;
}

void ParkedOscillator::restoreReceiver(TickOscillator& oscillator) {
    Parking& p = parking();
    std::lock_guard<std::mutex> lock(p.mutex);
    if (p.receiverHeld && !oscillator.isRunning()) {
        (void)oscillator.registerOnTick(p.heldReceiver);
        p.receiverHeld = false;
        p.heldReceiver = nullptr;
    }
}

}  // namespace zyn_fuzz::sched

// Only the oscillator thread sleeps through clock_nanosleep in this target.
extern "C" int __wrap_clock_nanosleep(clockid_t /*clock*/, int /*flags*/, const timespec* /*request*/,
                                      timespec* /*remain*/) {
    using zyn_fuzz::sched::Parking;
    TickOscillator& oscillator = tickScheduler.tickOscillator;
    Parking& p = zyn_fuzz::sched::parking();
    {
        std::lock_guard<std::mutex> lock(p.mutex);
        p.parked = true;
    }
    p.parkedChanged.notify_all();
    while (oscillator.isRunning()) {
        std::this_thread::sleep_for(zyn_fuzz::sched::kStopPollInterval);
    }
    std::lock_guard<std::mutex> lock(p.mutex);
    p.heldReceiver = oscillator.getReceiver();
    p.receiverHeld = true;
    (void)oscillator.registerOnTick(nullptr);
    return 0;
}
