// The CPU wake-up latency request held by the host while real-time threads
// run, observed on a fake device (a regular file or a FIFO).

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FakeCpuLatencyDevice.h"
#include "ParkedThread.h"
#include "PlatformHost/CpuLatencyHost.h"
#include "ThreadUtilities.h"
#include "TraceCapture.h"

namespace {

using os_extension::thread_utilities::setScheduling;
using platform_host::CpuLatencyRequest;
using platform_host::cpuLatencyState;
using platform_host::setCpuLatencyDeviceForTesting;
using platform_host::setCpuLatencyRequest;

class CpuLatencyHostTest : public FakeCpuLatencyDeviceTest {
protected:
    /// A parked thread given a real-time policy, as the oscillator's thread is.
    static std::unique_ptr<ParkedThread> realTimeThread() {
        auto parked = std::make_unique<ParkedThread>();
        setScheduling(parked->thread(), SCHED_RR, 1);
        return parked;
    }
};

TEST_F(CpuLatencyHostTest, DefaultRequestOfZeroIsWrittenAndHeldWhileARealTimeThreadRuns) {
    ASSERT_FALSE(cpuLatencyState().held);
    auto parked = realTimeThread();

    EXPECT_TRUE(cpuLatencyState().held);
    EXPECT_EQ(cpuLatencyState().holders, 1u);
    EXPECT_EQ(openDescriptors(device), 1);
    EXPECT_EQ(valuesIn(device), std::vector<int32_t>{0});
}

TEST_F(CpuLatencyHostTest, RequestIsReleasedWhenTheThreadEnds) {
    auto parked = realTimeThread();
    ASSERT_EQ(openDescriptors(device), 1);

    parked.reset();

    awaitRequestReleased();
    EXPECT_EQ(openDescriptors(device), 0);
}

TEST_F(CpuLatencyHostTest, ChosenValueIsWritten) {
    setCpuLatencyRequest(CpuLatencyRequest{true, 25});
    auto parked = realTimeThread();
    EXPECT_EQ(valuesIn(device), std::vector<int32_t>{25});
}

TEST_F(CpuLatencyHostTest, NewValueWhileHeldReplacesTheRequestOnTheSameDescriptor) {
    auto parked = realTimeThread();
    setCpuLatencyRequest(CpuLatencyRequest{true, 10});
    EXPECT_EQ(valuesIn(device), (std::vector<int32_t>{0, 10}));
    EXPECT_EQ(openDescriptors(device), 1);
}

TEST_F(CpuLatencyHostTest, OffMakesNoRequest) {
    setCpuLatencyRequest(CpuLatencyRequest{false, 0});
    auto parked = realTimeThread();
    EXPECT_FALSE(cpuLatencyState().held);
    EXPECT_EQ(cpuLatencyState().holders, 1u);
    EXPECT_EQ(openDescriptors(device), 0);
    EXPECT_TRUE(valuesIn(device).empty());
}

TEST_F(CpuLatencyHostTest, SwitchingOffWhileHeldReleasesAndSwitchingOnHoldsAgain) {
    auto parked = realTimeThread();
    setCpuLatencyRequest(CpuLatencyRequest{false, 0});
    EXPECT_EQ(openDescriptors(device), 0);
    setCpuLatencyRequest(CpuLatencyRequest{true, 0});
    EXPECT_EQ(openDescriptors(device), 1);
}

TEST_F(CpuLatencyHostTest, HeldUntilTheLastOfSeveralThreadsEnds) {
    auto first = realTimeThread();
    auto second = realTimeThread();
    EXPECT_EQ(cpuLatencyState().holders, 2u);
    EXPECT_EQ(openDescriptors(device), 1);

    first.reset();
    awaitWithin([] { return cpuLatencyState().holders == 1; }, "the first thread's end being noticed");
    EXPECT_TRUE(cpuLatencyState().held);
    second.reset();
    awaitRequestReleased();
}

TEST_F(CpuLatencyHostTest, ThreadScheduledTwiceHoldsOnce) {
    auto parked = realTimeThread();
    setScheduling(parked->thread(), SCHED_RR, 2);
    EXPECT_EQ(cpuLatencyState().holders, 1u);
    parked.reset();
    awaitRequestReleased();
}

TEST_F(CpuLatencyHostTest, ThreadWithoutRealTimePolicyHoldsNothing) {
    ParkedThread parked;
    setScheduling(parked.thread(), SCHED_OTHER, 0);
    EXPECT_EQ(cpuLatencyState().holders, 0u);
    EXPECT_EQ(openDescriptors(device), 0);
}

TEST_F(CpuLatencyHostTest, StartStopCyclesLeaveNoDescriptorOpen) {
    const int before = openDescriptors();
    for (int cycle = 0; cycle < 5; ++cycle) {
        auto parked = realTimeThread();
        ASSERT_EQ(openDescriptors(device), 1);
    }
    awaitRequestReleased();
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CpuLatencyHostTest, FifoReaderSeesTheValueAndTheReleaseAsEndOfFile) {
    const std::string fifo = directory + "/fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    setCpuLatencyDeviceForTesting(fifo);
    setCpuLatencyRequest(CpuLatencyRequest{true, 7});

    auto parked = realTimeThread();
    int32_t value = -1;
    EXPECT_EQ(::read(reader, &value, sizeof value), static_cast<ssize_t>(sizeof value));
    EXPECT_EQ(value, 7);

    // Nothing asks the host after the thread ended: its own watcher notices.
    parked.reset();
    pollfd hangUp{reader, POLLIN, 0};
    awaitWithin([&] { return ::poll(&hangUp, 1, 0) == 1 && (hangUp.revents & POLLHUP) != 0; },
                "the FIFO's writer closing after the thread ended");
    EXPECT_EQ(::read(reader, &value, sizeof value), 0);  // every writer closed
    ::close(reader);
    ::unlink(fifo.c_str());
}

TEST_F(CpuLatencyHostTest, RefusedDeviceGivesOneWarningSayingHowToGrantIt) {
    setCpuLatencyDeviceForTesting(directory + "/missing/cpu_dma_latency");
    TraceCapture capture;
    {
        auto first = realTimeThread();
        EXPECT_FALSE(cpuLatencyState().held);
        EXPECT_NE(cpuLatencyState().refusal.find("cannot open"), std::string::npos);
    }
    { auto second = realTimeThread(); }

    const std::vector<std::string> lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("ZYN.HOST L2"), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find("refused"), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find("root"), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find("ZYN_CPU_LATENCY_US=off"), std::string::npos) << lines[0];
}

TEST(CpuLatencyParseTest, AcceptsOffAndMicrosecondsInRange) {
    CpuLatencyRequest request;
    std::string error;
    ASSERT_TRUE(platform_host::parseCpuLatencyRequest("off", request, error));
    EXPECT_FALSE(request.enabled);
    ASSERT_TRUE(platform_host::parseCpuLatencyRequest("0", request, error));
    EXPECT_TRUE(request.enabled);
    EXPECT_EQ(request.microseconds, 0u);
    ASSERT_TRUE(platform_host::parseCpuLatencyRequest("2000000000", request, error));
    EXPECT_EQ(request.microseconds, 2000000000u);
}

TEST(CpuLatencyParseTest, RefusesAnythingElseNamingWhatIsAccepted) {
    for (const char* text : {"", "-1", "abc", "12us", "1 ", "2000000001", "99999999999", "OFF"}) {
        CpuLatencyRequest request{true, 5};
        std::string error;
        EXPECT_FALSE(platform_host::parseCpuLatencyRequest(text, request, error)) << text;
        EXPECT_EQ(request.microseconds, 5u) << text;
        EXPECT_NE(error.find("expected 'off' or microseconds from 0 to 2000000000"), std::string::npos) << error;
    }
}

}  // namespace
