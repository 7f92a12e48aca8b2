// Wrong input of a client ends in a defined status or a closed connection, and affects no other.
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <binder/transport/frame.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ipeltoservice/IPeltoService.h>
#include <ipeltoservice/PeltoServiceCalls.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <fstream>

#include "tests/support/service_fixture.h"

using namespace android;
using testing::ElementsAre;

namespace {

class BadInputTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        mHost = std::make_unique<Program>(listeningHostCommand({"test_event"}));
        ASSERT_TRUE(mHost->awaitReady());
        mWatcher = std::make_unique<Program>(watchCommand());
        ASSERT_TRUE(mWatcher->awaitReady());
    }

    // The events that the service's listener has received since the last call, one line each,
    // including all that this process has sent.
    std::vector<std::string> dispatched() {
        EXPECT_EQ(send("test_written", ""), OK);
        std::vector<std::string> lines;
        for (std::string line = mHost->line(); line.rfind("written ", 0) != 0;
             line = mHost->line()) {
            lines.push_back(line);
            if (line.empty()) break;
        }
        return lines;
    }

    // Checks that an event of another client is delivered, and nothing else was.
    void expectServiceGoesOn() {
        ASSERT_EQ(pelto({"send", "test_event", "another's"}).code, 0);
        EXPECT_THAT(dispatched(), ElementsAre("test_event another's"));
        EXPECT_EQ(mWatcher->line(), "test_event another's");
    }

    status_t transact(uint32_t code, const Parcel& data) {
        Parcel reply;
        return service()->transact(code, data, &reply);
    }

    // Whether the service closes a connection on which it receives these bytes.
    bool endsConnection(const std::string& bytes) {
        const sim::Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = phone().runDir() + "/services/" + kPeltoServiceName;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        pollfd ready{fd.get(), POLLIN, 0};
        char block[4096];
        while (poll(&ready, 1, 30000) == 1) {
            if (read(fd.get(), block, sizeof block) <= 0) return true;
        }
        return false;
    }

    std::unique_ptr<Program> mHost, mWatcher;
};

Parcel call(const String16& token = IPeltoService::descriptor) {
    Parcel data;
    data.writeInterfaceToken(token);
    return data;
}

// A call whose first argument claims to be a text of `length` characters.
Parcel callWithText(int32_t length, const std::string& bytes) {
    Parcel data = call();
    data.writeInt32(length);
    data.write(bytes.data(), bytes.size());
    return data;
}

TEST_F(BadInputTest, malformedCallsAreRefused) {
    for (const uint32_t code : {0u, IPeltoService::SET_DEBUG_LOG + 1, 0xffffffu}) {
        EXPECT_EQ(transact(code, call()), UNKNOWN_TRANSACTION) << code;
    }
    for (uint32_t code = 1; code <= IPeltoService::SET_DEBUG_LOG; ++code) {
        EXPECT_EQ(transact(code, Parcel()), PERMISSION_DENIED) << code;
        EXPECT_EQ(transact(code, call(String16("pelto.IPeltoSERVICE"))), PERMISSION_DENIED);
        EXPECT_EQ(transact(code, call()), NOT_ENOUGH_DATA) << code;
    }
    constexpr uint32_t kSet = IPeltoService::SET_EVENT;
    EXPECT_EQ(transact(kSet, callWithText(4, std::string("test\0\0\0\0", 8))), NOT_ENOUGH_DATA);
    EXPECT_EQ(transact(kSet, callWithText(8, std::string("no end here!"))), BAD_VALUE);
    EXPECT_EQ(transact(kSet, callWithText(9, "too short")), NOT_ENOUGH_DATA);
    EXPECT_EQ(transact(kSet, callWithText(INT32_MAX, "test")), NOT_ENOUGH_DATA);
    EXPECT_EQ(transact(kSet, callWithText(INT32_MIN, "test")), BAD_VALUE);
    EXPECT_EQ(transact(IPeltoService::REGISTER_NATIVE_CLIENT, callWithText(1, "none")), BAD_TYPE);
    // An object that is no native client is registered, and refuses the events sent to it.
    Parcel stranger = call();
    ProcessState::self()->startThreadPool();
    stranger.writeStrongBinder(sp<BBinder>::make());
    EXPECT_EQ(transact(IPeltoService::REGISTER_NATIVE_CLIENT, stranger), OK);
    expectServiceGoesOn();
}

TEST_F(BadInputTest, bytesThatAreNoFramesEndTheirConnection) {
    using namespace transport;
    FrameHeader hello{};
    hello.magic = kMagic;
    hello.kind = HELLO;
    hello.code = kVersion;
    FrameHeader huge = hello;
    huge.size = 0xfffffffc;
    const auto bytes = [](const FrameHeader& header) {
        return std::string(reinterpret_cast<const char*>(&header), sizeof header);
    };
    EXPECT_TRUE(endsConnection("GET /index.html HTTP/1.0\r\nHost: localhost\r\n\r\n"));
    EXPECT_TRUE(endsConnection(std::string(1 << 20, '\xff')));
    EXPECT_TRUE(endsConnection(bytes(huge)));
    EXPECT_TRUE(endsConnection(bytes(hello) + bytes(hello)));
    expectServiceGoesOn();
}

// A message holds 1023 bytes: the type, "$" and the information.
TEST_F(BadInputTest, tooLongAnEventReachesNativeClientsAlone) {
    const size_t room = 1023 - std::string("test_event$").size();
    const std::string fits(room, 'a'), tooLong(room + 1, 'b'), huge(1000000, 'c');
    EXPECT_EQ(send("test_event", fits), OK);
    EXPECT_EQ(send("test_event", tooLong), OK);
    EXPECT_EQ(send("test_event", huge), OK);
    EXPECT_EQ(send("test_event", std::string(1 << 20, 'd')), FAILED_TRANSACTION);
    EXPECT_THAT(dispatched(), ElementsAre("test_event " + fits));
    for (const std::string& info : {fits, tooLong, huge}) {
        EXPECT_EQ(mWatcher->line(), "test_event " + info);
    }
}

TEST_F(BadInputTest, aClientKilledWhileItSendsLeavesWholeEvents) {
    std::vector<std::string> sent(200000);  // more than are sent before the kill
    const std::string input = phone().folder() + "/input";
    std::ofstream file(input);
    for (size_t i = 0; i < sent.size(); ++i) {
        sent[i] = "test_event " + std::to_string(i);
        file << sent[i] << '\n';
    }
    file.close();
    Program killed(command({"send", "--stdin"}), input);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(mWatcher->line(), sent[static_cast<size_t>(i)]);
    killed.signal(SIGKILL);
    EXPECT_EQ(killed.wait(), -SIGKILL);

    const std::vector<std::string> arrived = dispatched();
    EXPECT_GE(arrived.size(), 100u);
    EXPECT_LT(arrived.size(), sent.size());
    sent.resize(arrived.size());
    EXPECT_EQ(arrived, sent);
}

}  // namespace
