#include "Interrupts.h"

#include <pthread.h>

namespace tickmon {
namespace {

volatile sig_atomic_t interrupted = 0;

void onInterrupt(int) { interrupted = 1; }

}  // namespace

void installInterruptHandlers() {
    struct sigaction action {};
    action.sa_handler = &onInterrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool interruptRequested() { return interrupted != 0; }

InterruptsBlocked::InterruptsBlocked() {
    sigset_t interrupts;
    sigemptyset(&interrupts);
    sigaddset(&interrupts, SIGINT);
    sigaddset(&interrupts, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &interrupts, &previous);
}

InterruptsBlocked::~InterruptsBlocked() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }

}  // namespace tickmon
