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

    std::unique_ptr<Program> mHost, mWatcher;
};

TEST_F(BadInputTest, RefusesMalformedCallsAndGoesOn) {
    Parcel stranger, reply;
    EXPECT_EQ(service()->transact(IPeltoService::SET_EVENT, stranger, &reply), PERMISSION_DENIED);
    stranger.writeInterfaceToken(IPeltoService::descriptor);
    EXPECT_EQ(service()->transact(IPeltoService::SET_EVENT, stranger, &reply), NOT_ENOUGH_DATA);
    // An object that is no native client is registered, and refuses the events sent to it.
    ProcessState::self()->startThreadPool();
    stranger.writeStrongBinder(sp<BBinder>::make());
    EXPECT_EQ(service()->transact(IPeltoService::REGISTER_NATIVE_CLIENT, stranger, &reply), OK);
    ASSERT_EQ(pelto({"send", "test_event", "another's"}).code, 0);
    EXPECT_EQ(mHost->line(), "test_event another's");
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

    EXPECT_EQ(send("test_written", ""), OK);
    size_t arrived = 0;
    std::string line;
    for (; (line = mHost->line()) == event; ++arrived) {
    }
    EXPECT_THAT(line, StartsWith("written "));
    EXPECT_THAT(arrived, AllOf(Ge(100u), Lt(kMost)));
}

}  // namespace
