// Lowering the timer slack of the calling thread and of other threads.

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>

#include <chrono>
#include <thread>

#include "ParkedThread.h"
#include "TimerSlack.h"

namespace {

using platform_host::detail::lowerTimerSlack;
using platform_host::detail::timerSlackSignal;

unsigned long ownTimerSlack() { return static_cast<unsigned long>(::prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0)); }

TEST(TimerSlackTest, CallingThreadLowersItsOwnSlack) {
    std::thread thread([] {
        ASSERT_GT(ownTimerSlack(), 1u);
        EXPECT_TRUE(lowerTimerSlack(pthread_self()));
        EXPECT_EQ(ownTimerSlack(), 1u);
    });
    thread.join();
}

TEST(TimerSlackTest, OtherThreadsSlackIsLoweredOnThatThread) {
    ParkedThread parked;
    const unsigned long callerSlack = ownTimerSlack();
    ASSERT_GT(parked.ownTimerSlack(), 1u);

    EXPECT_TRUE(lowerTimerSlack(parked.thread().native_handle()));

    EXPECT_EQ(parked.ownTimerSlack(), 1u);
    EXPECT_EQ(ownTimerSlack(), callerSlack);
}

TEST(TimerSlackTest, ThreadBlockingTheSignalIsGivenUpOnAndServedLater) {
    ParkedThread parked;
    parked.runThere([] {
        sigset_t blocked;
        sigemptyset(&blocked);
        sigaddset(&blocked, timerSlackSignal());
        pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    });
    const unsigned long slackBefore = parked.ownTimerSlack();
    ASSERT_GT(slackBefore, 1u);

    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(lowerTimerSlack(parked.thread().native_handle(), 20));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
    EXPECT_EQ(parked.ownTimerSlack(), slackBefore);

    // The request stays pending; once the thread takes the signal, the
    // handler (installed for good) lowers the slack after all.
    parked.runThere([] {
        sigset_t blocked;
        sigemptyset(&blocked);
        sigaddset(&blocked, timerSlackSignal());
        pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    });
    EXPECT_EQ(parked.ownTimerSlack(), 1u);
}

}  // namespace
