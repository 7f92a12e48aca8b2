// What clients that keep to no rules can do: cost their own connection.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <functional>
#include <thread>

#include "platform/binder/testing/binder_fixture.h"

namespace android::binder_test {
namespace {

using namespace transport;

constexpr size_t kHeader = sizeof(FrameHeader);

struct Outgoing {
    FrameHeader header;
    std::string rest;
};

Outgoing frame(uint32_t kind, uint32_t handle = 0, uint32_t code = 0,
               const std::string& data = "") {
    FrameHeader header{};
    header.magic = kMagic;
    header.size = static_cast<uint32_t>(data.size());
    header.kind = kind;
    header.callId = kind == CALL ? 1 : 0;
    header.handle = handle;
    header.code = code;
    return {header, data};
}

Outgoing oneWay(uint32_t code, const std::string& data) {
    Outgoing out = frame(CALL, 0, code, data);
    out.header.flags = 1;
    out.header.callId = 0;
    return out;
}

// A call that carries an object, as an honest parcel would.
Outgoing withObject(uint32_t code, ObjectEntry entry, const std::string& more = "") {
    Parcel parcel;
    parcel.writeStrongBinder(sp<TestService>::make());
    const std::string data(reinterpret_cast<const char*>(parcel.data()), parcel.dataSize());
    Outgoing out = frame(CALL, 0, code, data + more);
    out.rest.insert(0, reinterpret_cast<const char*>(&entry), sizeof(entry));
    out.header.size += sizeof(entry);
    out.header.objectCount = 1;
    return out;
}

class RawClient {
  public:
    explicit RawClient(const std::string& path) : mSocket(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        mConnected =
            mSocket.valid() &&
            connect(mSocket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    }
    bool connected() const { return mConnected; }

    void sendBytes(const void* bytes, size_t size) {
        const char* at = static_cast<const char*>(bytes);
        while (size > 0) {
            const ssize_t sent = ::send(mSocket.get(), at, size, MSG_NOSIGNAL);
            if (sent <= 0) return;
            at += sent;
            size -= static_cast<size_t>(sent);
        }
    }
    void send(const Outgoing& out) {
        std::string bytes(reinterpret_cast<const char*>(&out.header), kHeader);
        bytes += out.rest;
        sendBytes(bytes.data(), bytes.size());
    }
    void greet() { send(frame(HELLO, 0, kVersion)); }
    void halfClose() { shutdown(mSocket.get(), SHUT_WR); }

    bool receive(void* bytes, size_t size) {
        char* at = static_cast<char*>(bytes);
        pollfd ready{mSocket.get(), POLLIN, 0};
        for (size_t got = 0; got < size;) {
            if (poll(&ready, 1, std::chrono::milliseconds(kPatience).count()) <= 0) return false;
            const ssize_t count = recv(mSocket.get(), at + got, size - got, 0);
            if (count <= 0) return mEnded = true, false;
            got += static_cast<size_t>(count);
        }
        return true;
    }
    // The next frame of that kind; its data are skipped.
    FrameHeader next(uint32_t kind) {
        FrameHeader header{};
        while (receive(&header, kHeader)) {
            std::string rest(header.size, 0);
            if (!receive(&rest[0], rest.size())) break;
            if (header.kind == kind) return header;
        }
        return FrameHeader{};
    }
    // Whether the other side hangs up.
    bool ended() {
        char c;
        while (receive(&c, 1)) {
        }
        return mEnded;
    }

  private:
    sim::Fd mSocket;
    bool mConnected = false;
    bool mEnded = false;
};

class AttackTest : public BinderTest {
  protected:
    bool waitForLines(size_t count) {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        while (logLines("Binder").size() < count) {
            if (std::chrono::steady_clock::now() > end) return false;
            std::this_thread::yield();
        }
        return true;
    }
    void expectServing() {
        String8 answer;
        EXPECT_EQ(OK, echo(mRemote, String8("still here"), &answer));
        EXPECT_EQ(String8("still here"), answer);
    }
};

struct Attack {
    const char* reason;
    std::function<void(RawClient&)> run;
};

// Sends what `change` makes of an honest frame, after an honest greeting.
std::function<void(RawClient&)> changed(Outgoing out, std::function<void(FrameHeader&)> change) {
    change(out.header);
    return [out](RawClient& client) {
        client.greet();
        client.send(out);
    };
}

std::function<void(RawClient&)> sending(const Outgoing& out) {
    return changed(out, [](FrameHeader&) {});
}

const Attack kAttacks[] = {
    {"bad magic",
     [](RawClient& c) { c.sendBytes("GET / HTTP/1.1\r\nHost: nobody at all\r\n\r\n", 40); }},
    {"no greeting of our version", [](RawClient& c) { c.send(frame(CALL)); }},
    {"no greeting of our version", [](RawClient& c) { c.send(frame(HELLO, 0, kVersion + 1)); }},
    {"a second greeting", sending(frame(HELLO, 0, kVersion))},
    {"bad size", changed(frame(CALL), [](FrameHeader& h) { h.size = UINT32_MAX; })},
    {"bad size", changed(frame(CALL), [](FrameHeader& h) { h.size = kMaxPayload + 4; })},
    {"bad size", changed(frame(CALL), [](FrameHeader& h) { h.size = 3; })},
    {"bad size", changed(frame(CALL), [](FrameHeader& h) { h.objectCount = 1; })},
    {"too many objects", changed(frame(CALL), [](FrameHeader& h) { h.objectCount = UINT32_MAX; })},
    {"unknown kind of frame", sending(frame(77))},
    {"unknown flags", changed(frame(CALL), [](FrameHeader& h) { h.flags = 2; })},
    {"a call id that does not fit its flags",
     changed(frame(CALL), [](FrameHeader& h) { h.flags = 1; })},
    {"data where none belong", sending(frame(RELEASE, 0, 1, "data"))},
    {"a call to an object it was not given", sending(frame(CALL, 4711))},
    {"a reply to no call", sending(frame(REPLY))},
    {"a release of what it was not given", sending(frame(RELEASE, 4711, 1))},
    {"a release of what it was not given", sending(frame(RELEASE, 0, 1))},
    {"an object outside the data", sending(withObject(TestService::KEEP, {2, SENDER, 1}))},
    {"an object outside the data", sending(withObject(TestService::KEEP, {4, SENDER, 1}))},
    {"an object outside the data",
     sending(withObject(TestService::KEEP, {UINT32_MAX - 3, SENDER, 1}))},
    {"an object where none was written",
     sending(withObject(TestService::KEEP, {4, SENDER, 1}, "more"))},
    {"an object of nobody's", sending(withObject(TestService::KEEP, {0, 2, 1}))},
    {"an object it was not given", sending(withObject(TestService::KEEP, {0, RECEIVER, 4711}))},
    {"an object it cannot have", sending(withObject(TestService::KEEP, {0, SENDER, 0}))},
    {"the other side ended within a frame",
     [](RawClient& c) {
         c.greet();
         c.sendBytes(&kMagic, sizeof(kMagic));
         c.halfClose();
     }},
};

TEST_F(AttackTest, whoBreaksTheRulesLosesItsConnectionWithOneLine) {
    publishAndServe();
    size_t attacks = 0;
    for (const Attack& attack : kAttacks) {
        RawClient client(socketPath());
        ASSERT_TRUE(client.connected());
        attack.run(client);
        EXPECT_TRUE(client.ended()) << attack.reason;
        ASSERT_EQ(++attacks, logLines("Binder").size()) << attack.reason;
        EXPECT_EQ("connection to process " + std::to_string(getpid()) + " ended: " + attack.reason,
                  logLines("Binder").back());
    }
    expectServing();
    EXPECT_EQ(0, countOfNotes());
}

TEST_F(AttackTest, repliesThatAreNotReadEndTheConnection) {
    publishAndServe();
    RawClient client(socketPath());
    client.greet();
    for (size_t i = 0; i < 8; ++i) {
        client.send(frame(CALL, 0, TestService::ECHO, std::string(kMaxPayload, 'x')));
    }
    EXPECT_TRUE(waitForLines(1));
    EXPECT_TRUE(client.ended());
    EXPECT_EQ(1u, logLines("Binder").size());
    expectServing();
}

// While a thread waits for a reply of the client, reading goes on past a full backlog: what does
// not fit is refused, and the reply behind it arrives.
TEST_F(AttackTest, aFloodBeforeAReplyIsCutAndTheReplyArrives) {
    ProcessState::self()->setThreadPoolMaxThreadCount(0);
    publishAndServe();
    RawClient client(socketPath());
    client.greet();
    Parcel text;
    text.writeString8(String8("hello"));
    client.send(
        withObject(TestService::CALL_BACK, {0, SENDER, 9},
                   std::string(reinterpret_cast<const char*>(text.data()), text.dataSize())));
    const FrameHeader callBack = client.next(CALL);
    ASSERT_EQ(9u, callBack.handle);
    constexpr size_t kTooMany = Connection::kMaxBacklog / kMaxPayload + 1;
    for (size_t i = 0; i < kTooMany + 2; ++i) {
        client.send(oneWay(TestService::NOTE, std::string(kMaxPayload, 'x')));
    }
    Outgoing refused = frame(CALL, 0, TestService::ECHO, std::string(kMaxPayload, 'x'));
    refused.header.callId = 2;
    client.send(refused);
    EXPECT_EQ(FAILED_TRANSACTION, client.next(REPLY).status);
    Outgoing answer = frame(REPLY);
    answer.header.callId = callBack.callId;
    client.send(answer);
    const FrameHeader result = client.next(REPLY);
    EXPECT_EQ(1u, result.callId);
    EXPECT_EQ(OK, result.status);
    EXPECT_EQ(std::vector<std::string>{"calls of process " + std::to_string(getpid()) +
                                       " are dropped: too many wait"},
              logLines("Binder"));
    const int32_t kept = countOfNotes();
    EXPECT_GE(kept, 1);
    EXPECT_LT(kept, static_cast<int32_t>(kTooMany));
}

TEST_F(AttackTest, withoutDescriptorsNobodyIsLetInUntilSomeAreFree) {
    publishAndServe();
    expectServing();  // is let in
    const rlimit few{64, 64};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
    std::vector<std::unique_ptr<RawClient>> crowd;
    for (int i = 0; i < 64; ++i) {
        crowd.push_back(std::make_unique<RawClient>(socketPath()));
        if (!crowd.back()->connected()) break;
    }
    ASSERT_TRUE(waitForLines(1));
    expectServing();
    crowd.clear();
    RawClient late(socketPath());
    late.greet();
    late.send(frame(CALL, 0, IBinder::PING_TRANSACTION));
    EXPECT_EQ(1u, late.next(REPLY).callId);
    EXPECT_EQ(1u, logLines("Binder").size());
}

}  // namespace
}  // namespace android::binder_test
