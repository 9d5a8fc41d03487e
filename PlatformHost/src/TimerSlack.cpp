#include "TimerSlack.h"

#include <sys/prctl.h>
#include <csignal>

#include <atomic>
#include <cerrno>
#include <mutex>

#include "ThreadSignalRequest.h"

namespace platform_host::detail {

namespace {

constexpr unsigned long kMinimumSlackNs = 1;  // 0 would restore the default slack

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

// Installs the handler once, only over the default disposition. The handler
// stays installed for good, so a request that arrives after its requester
// gave up is still harmless.
bool ensureHandlerInstalled() {
    if (handlerInstalled) {
        return true;
    }
    if (!hasDefaultDisposition(timerSlackSignal()) || !installRequestHandler(timerSlackSignal(), &onSlackRequest)) {
        return false;
    }
    handlerInstalled = true;
    return true;
}

bool lowerOnOtherThread(pthread_t thread, uint32_t timeoutMs) {
    const std::lock_guard<std::mutex> lock(requestMutex);
    if (!ensureHandlerInstalled()) {
        return false;
    }
    const int request = nextRequestNumber(requestsSent);
    if (!sendRequest(thread, timerSlackSignal(), request)) {
        return false;
    }
    return awaitAnswerBit(lastAcknowledgement, request, static_cast<long>(timeoutMs)) == 1;
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
