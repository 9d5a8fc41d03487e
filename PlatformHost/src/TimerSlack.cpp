#include "TimerSlack.h"

#include <sys/prctl.h>
#include <csignal>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <mutex>

namespace platform_host::detail {

namespace {

constexpr unsigned long kMinimumSlackNs = 1;  // 0 would restore the default slack
constexpr long kPollIntervalNs = 100000;      // 0.1 ms

// Constant-initialised: usable from static constructors of other libraries.
std::mutex requestMutex;  // one request at a time
std::atomic<int> requestsSent{0};
// The sequence number of the last request handled, times two, plus one when
// the prctl call succeeded there.
std::atomic<int> lastAcknowledgement{0};
bool handlerInstalled = false;  // guarded by requestMutex

void onSlackRequest(int /*signal*/, siginfo_t* info, void* /*context*/) {
    const int savedErrno = errno;
    const bool lowered = ::prctl(PR_SET_TIMERSLACK, kMinimumSlackNs, 0, 0, 0) == 0;
    lastAcknowledgement.store(info->si_value.sival_int * 2 + (lowered ? 1 : 0), std::memory_order_release);
    errno = savedErrno;
}

// Installs the handler once, only over the default disposition: a signal that
// the application uses is left alone. The handler stays installed for good, so
// a request that arrives after its requester gave up is still harmless.
bool ensureHandlerInstalled() {
    if (handlerInstalled) {
        return true;
    }
    struct sigaction current {};
    if (::sigaction(timerSlackSignal(), nullptr, &current) != 0 || (current.sa_flags & SA_SIGINFO) != 0 ||
        current.sa_handler != SIG_DFL) {
        return false;
    }
    struct sigaction handler {};
    handler.sa_sigaction = &onSlackRequest;
    handler.sa_flags = SA_SIGINFO | SA_RESTART;
    ::sigemptyset(&handler.sa_mask);
    if (::sigaction(timerSlackSignal(), &handler, nullptr) != 0) {
        return false;
    }
    handlerInstalled = true;
    return true;
}

bool waitForAcknowledgement(int request, uint32_t timeoutMs) {
    const long polls = static_cast<long>(timeoutMs) * 1000000L / kPollIntervalNs;
    for (long poll = 0; poll <= polls; ++poll) {
        const int acknowledgement = lastAcknowledgement.load(std::memory_order_acquire);
        if (acknowledgement / 2 == request) {
            return (acknowledgement % 2) == 1;
        }
        const timespec interval{0, kPollIntervalNs};
        ::nanosleep(&interval, nullptr);
    }
    return false;
}

bool lowerOnOtherThread(pthread_t thread, uint32_t timeoutMs) {
    const std::lock_guard<std::mutex> lock(requestMutex);
    if (!ensureHandlerInstalled()) {
        return false;
    }
    // Sequence numbers stay positive and fit twice into an int.
    const int request = requestsSent.fetch_add(1, std::memory_order_relaxed) % 0x3fffffff + 1;
    sigval value{};
    value.sival_int = request;
    if (::pthread_sigqueue(thread, timerSlackSignal(), value) != 0) {
        return false;
    }
    return waitForAcknowledgement(request, timeoutMs);
}

}  // namespace

int timerSlackSignal() { return SIGRTMAX - 2; }

bool lowerTimerSlack(pthread_t thread, uint32_t timeoutMs) {
    if (::pthread_equal(thread, ::pthread_self()) != 0) {
        return ::prctl(PR_SET_TIMERSLACK, kMinimumSlackNs, 0, 0, 0) == 0;
    }
    return lowerOnOtherThread(thread, timeoutMs);
}

}  // namespace platform_host::detail
