// Registration of fast tick handlers: the record, the name, the argument
// checks and their order, and where a new handler lands.

#include <cstring>
#include <string>
#include <vector>

#include "FastSchedulerFixture.h"
#include "FreshHandlerRecord.h"

namespace fast_test {
namespace {

class FastRegistration : public FastSchedulerTest {};

TEST_F(FastRegistration, FillsTheRecordLikeAnIntervalZeroHandler) {
    int clientData = 0;
    const ITickReceiver receiver{&clientData, &handler_record::noTick};
    STickHandler* handle = nullptr;

    ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&handle, &receiver, "Audio"), TickResult::Success);

    handler_record::expectFresh(handle, &clientData, &handler_record::noTick, 0, "Audio");
    EXPECT_EQ(handlersInList(), std::vector<STickHandler*>{handle});
}

TEST_F(FastRegistration, AppendsUnderTheLockWithoutTracing) {
    std::vector<std::string> log;
    RecordingClient client("A", log);

    ASSERT_EQ(client.registerHandler(), TickResult::Success);

    EXPECT_EQ(platform_double::listCalls(), std::vector<ListFunction>{ListFunction::PushTail});
    EXPECT_TRUE(platform_double::traces().empty());
    // The lock was released again.
    ASSERT_EQ(pthread_mutex_trylock(&module().tickMutex), 0);
    pthread_mutex_unlock(&module().tickMutex);
}

TEST_F(FastRegistration, CopiesTheReceiverSoTheCallersObjectMayGo) {
    int clientData = 0;
    STickHandler* handle = nullptr;
    {
        ITickReceiver temporary{&clientData, &handler_record::noTick};
        ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&handle, &temporary, "T"), TickResult::Success);
        temporary = ITickReceiver{nullptr, nullptr};
    }
    EXPECT_EQ(handle->tickReceiver.context, &clientData);
    EXPECT_EQ(handle->tickReceiver.onTick, &handler_record::noTick);
}

TEST_F(FastRegistration, FortyCharacterNameKeepsItsFirst31AndTheUnregisterMessageShowsThem) {
    const std::string longName = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmn";
    ASSERT_EQ(longName.size(), 40u);
    std::vector<std::string> log;
    RecordingClient client("x", log);

    ASSERT_EQ(client.registerHandler(longName), TickResult::Success);
    EXPECT_EQ(std::string(client.handle->name), longName.substr(0, 31));
    EXPECT_EQ(client.handle->name[31], '\0');

    ASSERT_EQ(CTickSchedulerFast_UnregisterTickHandler(&client.handle), TickResult::Success);
    EXPECT_EQ(messagesOf(kUnregister),
              std::vector<std::string>{"5:Tick Handler " + longName.substr(0, 31) + " unregistered successfully"});
}

TEST_F(FastRegistration, ThirtyOneCharacterNameIsKeptWhole) {
    const std::string name(31, 'n');
    std::vector<std::string> log;
    RecordingClient client("x", log);

    ASSERT_EQ(client.registerHandler(name), TickResult::Success);

    EXPECT_EQ(std::string(client.handle->name), name);
}

TEST_F(FastRegistration, EmptyNameIsAccepted) {
    const ITickReceiver receiver{nullptr, &handler_record::noTick};
    STickHandler* handle = nullptr;

    ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&handle, &receiver, ""), TickResult::Success);

    EXPECT_STREQ(handle->name, "");
    EXPECT_EQ(handlersInList(), std::vector<STickHandler*>{handle});
}

TEST_F(FastRegistration, NullOutHandleIsReportedFirst) {
    EXPECT_EQ(CTickSchedulerFast_RegisterTickHandler(nullptr, nullptr, nullptr), TickResult::NullArgument);

    EXPECT_EQ(messagesOf(kRegister), std::vector<std::string>{"1:Called with nullptr argument"});
    EXPECT_TRUE(platform_double::listCalls().empty());
}

TEST_F(FastRegistration, NullReceiverIsReportedBeforeNullName) {
    STickHandler* const sentinel = reinterpret_cast<STickHandler*>(0x1234);
    STickHandler* handle = sentinel;

    EXPECT_EQ(CTickSchedulerFast_RegisterTickHandler(&handle, nullptr, nullptr), TickResult::NullArgument);

    EXPECT_EQ(messagesOf(kRegister), std::vector<std::string>{"1:Called with nullptr argument"});
    EXPECT_EQ(handle, sentinel);
    EXPECT_TRUE(platform_double::listCalls().empty());
}

TEST_F(FastRegistration, NullNameIsRefusedAndLeavesTheListUnchanged) {
    std::vector<std::string> log;
    RecordingClient existing("A", log);
    ASSERT_EQ(existing.registerHandler(), TickResult::Success);
    platform_double::reset();
    const ITickReceiver receiver{nullptr, &handler_record::noTick};
    STickHandler* const sentinel = reinterpret_cast<STickHandler*>(0x1234);
    STickHandler* handle = sentinel;

    EXPECT_EQ(CTickSchedulerFast_RegisterTickHandler(&handle, &receiver, nullptr), TickResult::NullArgument);

    EXPECT_EQ(messagesOf(kRegister), std::vector<std::string>{"1:Tick handler name pointer is invalid"});
    EXPECT_EQ(handle, sentinel);
    EXPECT_EQ(handlersInList(), std::vector<STickHandler*>{existing.handle});
    EXPECT_TRUE(platform_double::listCalls().empty());
}

TEST_F(FastRegistration, RefusalTraceNamesTheSourceAndTheOperation) {
    EXPECT_EQ(CTickSchedulerFast_RegisterTickHandler(nullptr, nullptr, nullptr), TickResult::NullArgument);

    const std::vector<platform_double::TraceRecord> records = platform_double::traces();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].file, kSourceFile);
    EXPECT_EQ(records[0].function, kRegister);
    EXPECT_EQ(records[0].level, 1u);
    EXPECT_FALSE(records[0].entry);
}

TEST_F(FastRegistration, RefusalDoesNotDependOnTracing) {
    platform_double::setTraceLevel(0);
    const ITickReceiver receiver{nullptr, &handler_record::noTick};
    STickHandler* handle = nullptr;

    EXPECT_EQ(CTickSchedulerFast_RegisterTickHandler(nullptr, &receiver, "A"), TickResult::NullArgument);
    EXPECT_EQ(CTickSchedulerFast_RegisterTickHandler(&handle, &receiver, nullptr), TickResult::NullArgument);

    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastRegistration, SameReceiverTwiceGivesTwoHandlersBothCalled) {
    std::vector<std::string> log;
    RecordingClient client("A", log);
    const ITickReceiver receiver = client.receiver();
    STickHandler* first = nullptr;
    STickHandler* second = nullptr;

    ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&first, &receiver, "A"), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&second, &receiver, "A"), TickResult::Success);
    tick();

    EXPECT_NE(first, second);
    EXPECT_EQ(log, (std::vector<std::string>{"A", "A"}));
}

TEST_F(FastRegistration, NewHandlerLandsAtTheTail) {
    std::vector<std::string> log;
    RecordingClient a("A", log);
    RecordingClient b("B", log);
    RecordingClient c("C", log);

    ASSERT_EQ(a.registerHandler(), TickResult::Success);
    ASSERT_EQ(b.registerHandler(), TickResult::Success);
    ASSERT_EQ(c.registerHandler(), TickResult::Success);

    EXPECT_EQ(handlersInList(), (std::vector<STickHandler*>{a.handle, b.handle, c.handle}));
}

TEST_F(FastRegistration, WorksWhileTheModuleIsNotInitialised) {
    CTickSchedulerFast_Uninitialize();
    std::vector<std::string> log;
    RecordingClient client("A", log);

    ASSERT_EQ(client.registerHandler(), TickResult::Success);
    tick();

    EXPECT_EQ(handlersInList(), std::vector<STickHandler*>{client.handle});
    EXPECT_EQ(log, std::vector<std::string>{"A"});
}

TEST_F(FastRegistration, WorksOnTheZeroFilledStateOfALoadedLibrary) {
    // The state before any Initialize: list and mutex as zero-filled at load.
    CTickSchedulerFast_Uninitialize();
    std::memset(static_cast<void*>(&module().handlerList), 0, sizeof(module().handlerList));
    std::memset(static_cast<void*>(&module().tickMutex), 0, sizeof(module().tickMutex));
    std::vector<std::string> log;
    RecordingClient client("A", log);

    ASSERT_EQ(client.registerHandler(), TickResult::Success);
    tick();
    ASSERT_EQ(CTickSchedulerFast_UnregisterTickHandler(&client.handle), TickResult::Success);

    EXPECT_EQ(log, std::vector<std::string>{"A"});
    EXPECT_TRUE(handlersInList().empty());
}

}  // namespace
}  // namespace fast_test
