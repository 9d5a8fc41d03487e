// pthread_create defined in the test executable takes precedence over the C
// library's (and over a sanitizer runtime's) for every caller in the process,
// std::thread included. It forwards to the next definition unless a
// ThreadCreationFailure is active.
#include "FailingThreadCreation.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<bool> failing{false};
std::atomic<int> refused{0};

using CreateFunction = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

CreateFunction nextCreate() {
    static const auto next = reinterpret_cast<CreateFunction>(dlsym(RTLD_NEXT, "pthread_create"));
    return next;
}

}  // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                              void* argument) {
    if (failing.load()) {
        refused.fetch_add(1);
        return EAGAIN;
    }
    return nextCreate()(thread, attributes, start, argument);
}

namespace oscillator_test {

ThreadCreationFailure::ThreadCreationFailure() {
    refused.store(0);
    failing.store(true);
}

ThreadCreationFailure::~ThreadCreationFailure() { failing.store(false); }

int ThreadCreationFailure::refusals() const { return refused.load(); }

}  // namespace oscillator_test
