#include "MutexFaultInjection.h"

#include <atomic>

extern "C" {
int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
}

namespace mutex_faults {
namespace {

// Constant-initialised: the wrappers run from the first mutex call of the
// process, possibly before any dynamic initialisation.
struct Script {
    std::atomic<pthread_mutex_t*> target{nullptr};
    std::atomic<bool> always{false};
    std::atomic<uint32_t> countdown{0};
    std::atomic<int> error{0};
    std::atomic<uint32_t> calls{0};
};

Script scripts[3];

Script& scriptOf(Operation operation) { return scripts[static_cast<int>(operation)]; }

/// The error to inject for this call, or 0 to let it through.
int injectedError(Operation operation, pthread_mutex_t* mutex) {
    Script& script = scriptOf(operation);
    if (mutex == nullptr || mutex != script.target.load()) {
        return 0;
    }
    script.calls.fetch_add(1);
    if (script.always.load()) {
        return script.error.load();
    }
    uint32_t remaining = script.countdown.load();
    while (remaining > 0 && !script.countdown.compare_exchange_weak(remaining, remaining - 1)) {}
    return remaining == 1 ? script.error.load() : 0;
}

}  // namespace

void failNth(Operation operation, pthread_mutex_t* target, uint32_t nth, int error) {
    Script& script = scriptOf(operation);
    script.always.store(false);
    script.error.store(error);
    script.countdown.store(nth);
    script.target.store(target);
}

void failAlways(Operation operation, pthread_mutex_t* target, int error) {
    Script& script = scriptOf(operation);
    script.error.store(error);
    script.always.store(true);
    script.target.store(target);
}

void disarm() {
    for (Script& script : scripts) {
        script.target.store(nullptr);
        script.always.store(false);
        script.countdown.store(0);
        script.calls.store(0);
    }
}

uint32_t calls(Operation operation) { return scriptOf(operation).calls.load(); }

}  // namespace mutex_faults

using mutex_faults::Operation;

extern "C" int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    if (const int error = mutex_faults::injectedError(Operation::Init, mutex)) {
        return error;
    }
    return __real_pthread_mutex_init(mutex, attributes);
}

extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (const int error = mutex_faults::injectedError(Operation::Lock, mutex)) {
        return error;
    }
    return __real_pthread_mutex_lock(mutex);
}

extern "C" int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    // A failing unlock still releases the mutex: the caller only sees the
    // error. The code under test cannot tell the difference, and the mutex
    // stays usable for the tests that follow.
    const int error = mutex_faults::injectedError(Operation::Unlock, mutex);
    const int result = __real_pthread_mutex_unlock(mutex);
    return error != 0 ? error : result;
}
