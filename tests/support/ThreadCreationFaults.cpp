#include "ThreadCreationFaults.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>

namespace thread_faults {
namespace {

// Constant-initialised: pthread_create may be called before any dynamic
// initialisation of this file has run.
std::atomic<int> armedError{0};
std::atomic<uint32_t> refused{0};

}  // namespace

void failThreadCreation(int error) {
    refused.store(0);
    armedError.store(error);
}

void allowThreadCreation() { armedError.store(0); }

uint32_t refusedCreations() { return refused.load(); }

}  // namespace thread_faults

using CreateThread = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

// With a statically linked sanitizer runtime, its pthread_create is a weak
// alias of this function, and the thread must still be announced to it.
extern "C" int __interceptor_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)
    __attribute__((weak));

namespace {

CreateThread nextPthreadCreate() {
    static const CreateThread next = [] {
        if (&__interceptor_pthread_create != nullptr) {
            return &__interceptor_pthread_create;
        }
        return reinterpret_cast<CreateThread>(dlsym(RTLD_NEXT, "pthread_create"));
    }();
    return next;
}

}  // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                              void* argument) {
    if (const int error = thread_faults::armedError.load()) {
        thread_faults::refused.fetch_add(1);
        return error;
    }
    return nextPthreadCreate()(thread, attributes, start, argument);
}
