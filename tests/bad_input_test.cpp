// Wrong input of a client ends in a defined status, and affects no other client.
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <gmock/gmock.h>
#include <ipeltoservice/IPeltoService.h>

#include <fstream>

#include "tests/support/service_fixture.h"

using namespace android;
using namespace testing;

namespace {

class BadInputTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        mHost = std::make_unique<ReadyProgram>(listeningHostCommand({"test_event"}));
        mWatcher = std::make_unique<ReadyProgram>(watchCommand());
    }

    // The events that the service's listener has received since the last call, one line each,
    // including all that this process has sent.
    std::vector<std::string> dispatched() {
        EXPECT_EQ(send("test_written", ""), OK);
        std::vector<std::string> lines{mHost->line()};
        while (!lines.back().empty() && lines.back().rfind("written ", 0) != 0)
            lines.push_back(mHost->line());
        lines.pop_back();
        return lines;
    }

    static status_t transact(uint32_t code, const Parcel& data) {
        Parcel reply;
        return service()->transact(code, data, &reply);
    }

    std::unique_ptr<Program> mHost, mWatcher;
};

Parcel call(const String16& token = IPeltoService::descriptor) {
    Parcel data;
    data.writeInterfaceToken(token);
    return data;
}

TEST_F(BadInputTest, RefusesMalformedCallsAndGoesOn) {
    for (const uint32_t code : {0u, IPeltoService::SET_DEBUG_LOG + 1, 0xffffffu})
        EXPECT_EQ(transact(code, call()), UNKNOWN_TRANSACTION) << code;
    for (uint32_t code = 1; code <= IPeltoService::SET_DEBUG_LOG; ++code) {
        EXPECT_EQ(transact(code, Parcel()), PERMISSION_DENIED) << code;
        EXPECT_EQ(transact(code, call(String16("pelto.IPeltoSERVICE"))), PERMISSION_DENIED);
        EXPECT_EQ(transact(code, call()), NOT_ENOUGH_DATA) << code;
    }
    // An object that is no native client is registered, and refuses the events sent to it.
    Parcel stranger = call();
    ProcessState::self()->startThreadPool();
    stranger.writeStrongBinder(sp<BBinder>::make());
    EXPECT_EQ(transact(IPeltoService::REGISTER_NATIVE_CLIENT, stranger), OK);
    ASSERT_EQ(pelto({"send", "test_event", "another's"}).code, 0);
    EXPECT_THAT(dispatched(), ElementsAre("test_event another's"));
    EXPECT_EQ(mWatcher->line(), "test_event another's");
}

TEST_F(BadInputTest, TakesWholeEventsOfAClientKilledWhileItSends) {
    constexpr size_t kMost = 200000;  // more than are sent before the kill
    const std::string event = "test_event whole", input = phone().folder() + "/input";
    std::ofstream file(input);
    for (size_t i = 0; i < kMost; ++i) file << event << '\n';
    file.close();
    Program killed(command({"send", "--stdin"}), input);
    for (size_t i = 0; i < 100; ++i) EXPECT_EQ(mWatcher->line(), event);
    killed.signal(SIGKILL);
    EXPECT_EQ(killed.wait(), -SIGKILL);

    const std::vector<std::string> arrived = dispatched();
    EXPECT_THAT(arrived, AllOf(SizeIs(AllOf(Ge(100u), Lt(kMost))), Each(event)));
}

}  // namespace
