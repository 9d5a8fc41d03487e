// Counting a real-time thread as a holder of the CPU latency request until it
// ends.
//
// The thread utilities learn of a real-time thread from another thread (the
// one that started it), but only the thread itself can arrange to be told
// when it ends. So, as for the timer slack, the thread is sent a real-time
// signal; its handler marks the thread with a thread-specific value whose
// destructor (run by the thread as it exits) removes the holder again. The
// handler only swaps atomics and stores the value in the thread's own
// first-level key block, which does not allocate.

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <mutex>

#include "CpuLatency.h"
#include "ThreadSignalRequest.h"

namespace platform_host::detail {
namespace {

constexpr long kTimeoutMs = 200;

std::mutex requestMutex;  // one request at a time
bool prepared = false;    // guarded by requestMutex
pthread_key_t holderKey;  // created once, guarded by requestMutex
char holderMark;          // the value stored for a holding thread

// The request the handler may claim (0: none), and the outcome of the last
// claim: its number times two, plus one when the thread already held.
std::atomic<int> pendingRequest{0};
std::atomic<int> lastOutcome{0};
std::atomic<int> requestsSent{0};

int holderSignal() { return SIGRTMAX - 3; }

void onThreadExit(void* /*mark*/) { removeCpuLatencyHolder(); }

/// Marks the calling thread; false when it was marked already.
bool markCallingThread() {
    if (::pthread_getspecific(holderKey) != nullptr) {
        return false;
    }
    ::pthread_setspecific(holderKey, &holderMark);
    return true;
}

void onHolderRequest(int /*signal*/, siginfo_t* info, void* /*context*/) {
    const int savedErrno = errno;
    int expected = info->si_value.sival_int;
    if (pendingRequest.compare_exchange_strong(expected, 0)) {
        const bool marked = markCallingThread();
        lastOutcome.store(info->si_value.sival_int * 2 + (marked ? 0 : 1), std::memory_order_release);
    }
    errno = savedErrno;
}

/// Creates the key and installs the handler, the handler only over the
/// default disposition (a signal the application uses is left alone).
bool prepare() {
    if (prepared) {
        return true;
    }
    if (!hasDefaultDisposition(holderSignal())) {
        return false;
    }
    if (::pthread_key_create(&holderKey, &onThreadExit) != 0) {
        return false;
    }
    if (!installRequestHandler(holderSignal(), &onHolderRequest)) {
        ::pthread_key_delete(holderKey);
        return false;
    }
    prepared = true;
    return true;
}

/// Waits for the handler's outcome of `request`: 1 marked, 0 marked already,
/// -1 never claimed (and now withdrawn, so it never will be).
int awaitOutcome(int request) {
    const int alreadyMarked = awaitAnswerBit(lastOutcome, request, kTimeoutMs);
    if (alreadyMarked >= 0) {
        return alreadyMarked == 0 ? 1 : 0;
    }
    int expected = request;
    if (pendingRequest.compare_exchange_strong(expected, 0)) {
        return -1;
    }
    // Claimed just now: the handler is storing its outcome.
    while (lastOutcome.load(std::memory_order_acquire) / 2 != request) {}
    return lastOutcome.load(std::memory_order_acquire) % 2 == 0 ? 1 : 0;
}

/// Marks another thread through the signal; the outcome as awaitOutcome's.
int markOtherThread(pthread_t thread) {
    const int request = nextRequestNumber(requestsSent);
    pendingRequest.store(request);
    if (!sendRequest(thread, holderSignal(), request)) {
        pendingRequest.store(0);
        return -1;
    }
    return awaitOutcome(request);
}

}  // namespace

bool holdCpuLatencyWhileRunning(pthread_t thread) {
    const std::lock_guard<std::mutex> lock(requestMutex);
    if (!prepare()) {
        return false;
    }
    // Counted before the thread is marked, so that a thread ending at once
    // never removes a holder that was not added yet.
    addCpuLatencyHolder();
    const int outcome =
        ::pthread_equal(thread, ::pthread_self()) != 0 ? (markCallingThread() ? 1 : 0) : markOtherThread(thread);
    if (outcome != 1) {
        removeCpuLatencyHolder();
    }
    return outcome >= 0;
}

}  // namespace platform_host::detail
