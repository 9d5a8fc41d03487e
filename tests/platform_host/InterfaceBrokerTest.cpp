// The reference interface broker. The broker is process-wide, so every test
// uses names of its own and withdraws them again.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "InterfaceBroker.h"
#include "PlatformHost/HostResultCodes.h"

namespace {

namespace result = platform_host::host_result;

class TestInterface : public virtual IInterface {};

InterfaceBroker& broker() { return *InterfaceBroker::getInstance(); }

TEST(InterfaceBrokerTest, InstanceIsProcessWide) {
    EXPECT_NE(InterfaceBroker::getInstance(), nullptr);
    EXPECT_EQ(InterfaceBroker::getInstance(), InterfaceBroker::getInstance());
}

TEST(InterfaceBrokerTest, RegisteredObjectIsFoundByName) {
    TestInterface object;
    ASSERT_EQ(broker().registerInterface("IFound", &object), result::Success);
    EXPECT_EQ(broker().getInterface("IFound"), &object);
    EXPECT_EQ(broker().getInterface("IFound2"), nullptr);
    EXPECT_EQ(broker().unregisterInterface("IFound", nullptr), result::Success);
}

TEST(InterfaceBrokerTest, TakenNameIsRefusedAndKeepsTheFirstObject) {
    TestInterface first;
    TestInterface second;
    ASSERT_EQ(broker().registerInterface("ITaken", &first), result::Success);
    const uint32_t refusal = broker().registerInterface("ITaken", &second);
    EXPECT_EQ(refusal, result::InterfaceNameTaken);
    EXPECT_GE(refusal, 32768u);
    EXPECT_EQ(broker().getInterface("ITaken"), &first);
    EXPECT_EQ(broker().unregisterInterface("ITaken", nullptr), result::Success);
}

TEST(InterfaceBrokerTest, NullObjectIsRefused) {
    EXPECT_EQ(broker().registerInterface("INull", nullptr), result::BrokerBadArgument);
    EXPECT_EQ(broker().getInterface("INull"), nullptr);
}

TEST(InterfaceBrokerTest, UnregisterHandsBackTheRemovedObject) {
    TestInterface object;
    ASSERT_EQ(broker().registerInterface("IRemoved", &object), result::Success);
    IInterface* removed = nullptr;
    EXPECT_EQ(broker().unregisterInterface("IRemoved", &removed), result::Success);
    EXPECT_EQ(removed, &object);
    EXPECT_EQ(broker().getInterface("IRemoved"), nullptr);
}

TEST(InterfaceBrokerTest, UnregisterWithoutOutParameterStillRemoves) {
    TestInterface object;
    ASSERT_EQ(broker().registerInterface("INoOut", &object), result::Success);
    EXPECT_EQ(broker().unregisterInterface("INoOut", nullptr), result::Success);
    EXPECT_EQ(broker().getInterface("INoOut"), nullptr);
    // The name is free again.
    EXPECT_EQ(broker().registerInterface("INoOut", &object), result::Success);
    EXPECT_EQ(broker().unregisterInterface("INoOut", nullptr), result::Success);
}

TEST(InterfaceBrokerTest, UnregisterOfUnknownNameFailsAndHandsBackNull) {
    TestInterface sentinel;
    IInterface* removed = &sentinel;
    const uint32_t refusal = broker().unregisterInterface("INeverRegistered", &removed);
    EXPECT_EQ(refusal, result::InterfaceNotRegistered);
    EXPECT_GE(refusal, 32768u);
    EXPECT_EQ(removed, nullptr);
}

TEST(InterfaceBrokerTest, ObjectsNameFieldIsLeftAlone) {
    TestInterface object;
    ASSERT_EQ(broker().registerInterface("INamed", &object), result::Success);
    EXPECT_TRUE(object.name.empty());
    EXPECT_EQ(broker().unregisterInterface("INamed", nullptr), result::Success);
}

TEST(InterfaceBrokerTest, ConcurrentRegistrationOfOneNameHasOneWinner) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    std::vector<TestInterface> objects(kThreads);
    for (int round = 0; round < kRounds; ++round) {
        std::atomic<int> winners{0};
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&, t] {
                while (!go.load()) {
                    std::this_thread::yield();
                }
                if (broker().registerInterface("IContended", &objects[t]) == result::Success) {
                    winners.fetch_add(1);
                }
            });
        }
        go.store(true);
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(winners.load(), 1) << "round " << round;
        IInterface* removed = nullptr;
        ASSERT_EQ(broker().unregisterInterface("IContended", &removed), result::Success);
        ASSERT_NE(removed, nullptr);
    }
}

TEST(InterfaceBrokerTest, ConcurrentClientsSeeConsistentEntries) {
    constexpr int kThreads = 4;
    constexpr int kIterations = 500;
    std::vector<TestInterface> objects(kThreads);
    std::atomic<int> inconsistencies{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const std::string name = "IWorker" + std::to_string(t);
            for (int i = 0; i < kIterations; ++i) {
                IInterface* removed = nullptr;
                if (broker().registerInterface(name, &objects[t]) != result::Success ||
                    broker().getInterface(name) != &objects[t] ||
                    broker().unregisterInterface(name, &removed) != result::Success || removed != &objects[t] ||
                    broker().getInterface(name) != nullptr) {
                    inconsistencies.fetch_add(1);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(inconsistencies.load(), 0);
}

}  // namespace
