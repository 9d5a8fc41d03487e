// The signal mask of the calling thread and the signals waiting for it, so
// that a test can block every signal in a thread and see whether any was
// sent to it.
#pragma once

#include <pthread.h>
#include <signal.h>

/// Blocks every signal the calling thread may block; threads it starts
/// inherit the mask.
inline void blockEverySignal() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

/// True when the calling thread blocks every standard and real-time signal
/// that an application may use.
inline bool callingThreadBlocksEverySignal() {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        const bool unblockable = signal == SIGKILL || signal == SIGSTOP || (signal > SIGSYS && signal < SIGRTMIN);
        if (!unblockable && sigismember(&blocked, signal) != 1) {
            return false;
        }
    }
    return true;
}

/// Signals sent to the calling thread (or to the process) that wait because
/// the thread blocks them.
inline int pendingSignalsOfCallingThread() {
    sigset_t pending;
    sigpending(&pending);
    int count = 0;
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        count += sigismember(&pending, signal) == 1 ? 1 : 0;
    }
    return count;
}
