// The signal mask of the calling thread and the signals waiting for it, so
// that a test can block every signal in a thread and see whether any was
// sent to it.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <thread>

/// Blocks every signal the calling thread may block; threads it starts
/// inherit the mask.
inline void blockEverySignal() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

/// The signals a thread of this process can block: every one but SIGKILL
/// and SIGSTOP on Linux, fewer under an emulator that keeps some signals for
/// itself (qemu-user does). Read once, from a thread that asks to block all.
inline const sigset_t& blockableSignals() {
    static const sigset_t blockable = [] {
        sigset_t mask;
        sigemptyset(&mask);
        std::thread([&mask] {
            blockEverySignal();
            pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        }).join();
        return mask;
    }();
    return blockable;
}

/// True when the calling thread blocks every signal a thread of this
/// process can block.
inline bool callingThreadBlocksEverySignal() {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    const sigset_t& blockable = blockableSignals();
    if (sigismember(&blockable, SIGUSR1) != 1 || sigismember(&blockable, SIGRTMIN) != 1) {
        return false;  // the probe failed: it cannot vouch for anything
    }
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        if (sigismember(&blockable, signal) == 1 && sigismember(&blocked, signal) != 1) {
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
