#include "TickRecorder.h"

#include <gtest/gtest.h>

#include <thread>

namespace tickmon {
namespace {

TEST(TickRecorder, DrainsInRecordingOrder) {
    TickRecorder recorder(8);
    std::vector<int64_t> out;
    recorder.record(1);
    recorder.record(2);
    recorder.record(3);
    EXPECT_EQ(recorder.drain(out), 3u);
    EXPECT_EQ(out, (std::vector<int64_t>{1, 2, 3}));
    EXPECT_EQ(recorder.drain(out), 0u);
}

TEST(TickRecorder, CountsWhatDoesNotFitAsLost) {
    TickRecorder recorder(3);  // rounded up to 4
    for (int64_t i = 0; i < 6; ++i) {
        recorder.record(i);
    }
    std::vector<int64_t> out;
    recorder.drain(out);
    EXPECT_EQ(out, (std::vector<int64_t>{0, 1, 2, 3}));
    EXPECT_EQ(recorder.lost(), 2u);
}

TEST(TickRecorder, RoomADrainFreesIsUsedAgainAfterTheRingWasFull) {
    TickRecorder recorder(4);
    for (int64_t i = 0; i < 5; ++i) {
        recorder.record(i);
    }
    std::vector<int64_t> out;
    recorder.drain(out);
    recorder.record(10);
    recorder.record(11);
    recorder.drain(out);
    EXPECT_EQ(out, (std::vector<int64_t>{0, 1, 2, 3, 10, 11}));
    EXPECT_EQ(recorder.lost(), 1u);
}

TEST(TickRecorder, KeepsOrderAcrossTheRingsEnd) {
    TickRecorder recorder(4);
    std::vector<int64_t> out;
    for (int64_t i = 0; i < 23; ++i) {
        recorder.record(i);
        if (i % 3 == 2) {
            recorder.drain(out);
        }
    }
    recorder.drain(out);
    ASSERT_EQ(out.size(), 23u);
    for (int64_t i = 0; i < 23; ++i) {
        EXPECT_EQ(out[static_cast<size_t>(i)], i);
    }
    EXPECT_EQ(recorder.lost(), 0u);
}

TEST(TickRecorder, ConcurrentDrainKeepsOrderAndAccountsForEveryTimestamp) {
    TickRecorder recorder(1024);
    constexpr int64_t kCount = 200000;
    std::thread producer([&recorder] {
        for (int64_t i = 0; i < kCount; ++i) {
            recorder.record(i);
        }
    });
    std::vector<int64_t> out;
    while (out.size() + recorder.lost() < static_cast<size_t>(kCount)) {
        recorder.drain(out);
    }
    producer.join();
    recorder.drain(out);
    ASSERT_EQ(out.size() + recorder.lost(), static_cast<size_t>(kCount));
    for (size_t i = 1; i < out.size(); ++i) {
        ASSERT_LT(out[i - 1], out[i]);
    }
}

}  // namespace
}  // namespace tickmon
