// Asking another thread of this process to run something on itself: some
// calls (prctl(PR_SET_TIMERSLACK), marking a thread for its exit) act only on
// the calling thread, so the requester sends that thread a real-time signal
// whose handler makes the call there and answers through an atomic.
//
// A request carries a sequence number; the handler answers with that number
// times two plus one bit, so that a late answer to an earlier request is
// never taken for the answer to the current one.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <ctime>

namespace platform_host::detail {

using SignalRequestHandler = void (*)(int signal, siginfo_t* info, void* context);

/// True while `signal` still has its default disposition: a signal that the
/// application uses is left alone.
inline bool hasDefaultDisposition(int signal) {
    struct sigaction current {};
    return ::sigaction(signal, nullptr, &current) == 0 && (current.sa_flags & SA_SIGINFO) == 0 &&
           current.sa_handler == SIG_DFL;
}

/// Installs `handler` for `signal`; an interrupted system call of the thread
/// restarts where it can.
inline bool installRequestHandler(int signal, SignalRequestHandler handler) {
    struct sigaction installed {};
    installed.sa_sigaction = handler;
    installed.sa_flags = SA_SIGINFO | SA_RESTART;
    ::sigemptyset(&installed.sa_mask);
    return ::sigaction(signal, &installed, nullptr) == 0;
}

/// The next sequence number: positive, and it fits twice into an int.
inline int nextRequestNumber(std::atomic<int>& requestsSent) {
    return requestsSent.fetch_add(1, std::memory_order_relaxed) % 0x3fffffff + 1;
}

/// Sends `request` to `thread` as the value of `signal`.
inline bool sendRequest(pthread_t thread, int signal, int request) {
    sigval value{};
    value.sival_int = request;
    return ::pthread_sigqueue(thread, signal, value) == 0;
}

/// Polls `answers` every 0.1 ms for up to `timeoutMs` until it holds the
/// answer to `request`; that answer's bit, or -1 when none came in time.
inline int awaitAnswerBit(const std::atomic<int>& answers, int request, long timeoutMs) {
    constexpr long kPollIntervalNs = 100000;
    const long polls = timeoutMs * 1000000L / kPollIntervalNs;
    for (long poll = 0; poll <= polls; ++poll) {
        const int answer = answers.load(std::memory_order_acquire);
        if (answer / 2 == request) {
            return answer % 2;
        }
        const timespec interval{0, kPollIntervalNs};
        ::nanosleep(&interval, nullptr);
    }
    return -1;
}

}  // namespace platform_host::detail
