// What clients that keep to no rules can do: cost their own connection.
#include <gtest/gtest.h>
#include <ipeltoservice/IPeltoNativeClient.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <deque>
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
            connect(mSocket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
        const timeval patience{std::chrono::seconds(kPatience).count(), 0};
        setsockopt(mSocket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    }
    bool connected() const { return mConnected; }

    void sendBytes(const void* bytes, size_t size) {
        ::send(mSocket.get(), bytes, size, MSG_NOSIGNAL);
    }
    void send(const Outgoing& out) {
        std::string bytes(reinterpret_cast<const char*>(&out.header), kHeader);
        bytes += out.rest;
        sendBytes(bytes.data(), bytes.size());
    }
    void greet() { send(frame(HELLO, 0, kVersion)); }
    void halfClose() { shutdown(mSocket.get(), SHUT_WR); }

    bool receive(void* bytes, size_t size) {
        const ssize_t count = size > 0 ? recv(mSocket.get(), bytes, size, MSG_WAITALL) : 0;
        if (count == static_cast<ssize_t>(size)) return true;
        mEnded = count >= 0 || errno != EAGAIN;
        return false;
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
    // Whether it is let in and served.
    bool served() {
        greet();
        send(frame(CALL, 0, IBinder::PING_TRANSACTION));
        return next(REPLY).callId == 1;
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
    static std::string endedLine(const std::string& reason) {
        return "connection to process " + std::to_string(getpid()) + " ended: " + reason;
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
    {"a release of what it was not given", sending(frame(RELEASE, 0, 1))},
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
        EXPECT_EQ(endedLine(attack.reason), logLines("Binder").back());
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

// One that died within a big frame, too.
TEST_F(AttackTest, aClientThatDiedCostsLittleAndIsTold) {
    publishAndServe();
    constexpr size_t kClients = 32;
    const Outgoing big = frame(CALL, 0, 0, std::string(kMaxPayload, 'x'));
    std::vector<sp<IPeltoNativeClient>> dead;
    std::vector<sp<Watcher>> watchers;
    const auto inUse = [] {
        const struct mallinfo2 heap = mallinfo2();
        return static_cast<long>(heap.uordblks + heap.hblkhd);
    };
    long before = 0;
    for (size_t i = 0; i <= kClients; ++i) {
        RawClient client(socketPath());
        client.greet();
        client.send(withObject(TestService::KEEP, {0, SENDER, 1}));
        ASSERT_EQ(1u, client.next(REPLY).callId);
        dead.push_back(interface_cast<IPeltoNativeClient>(mService->kept()));
        watchers.push_back(sp<Watcher>::make());
        ASSERT_EQ(OK, mService->kept()->linkToDeath(watchers.back()));
        client.sendBytes(&big.header, kHeader);
        client.sendBytes(big.rest.data(), big.rest.size() - 4);
        client.halfClose();
        ASSERT_TRUE(watchers.back()->told.wait());
        EXPECT_EQ(DEAD_OBJECT, dead.back()->onNativeEvent("type", "info"));
        if (i == 0) before = inUse();
    }
    EXPECT_EQ(1, watchers.back()->times);
    EXPECT_LT((inUse() - before) / static_cast<long>(kClients), 4096);
    expectServing();
}

TEST_F(AttackTest, aClientHasSoManyLiveObjectsAndNoMore) {
    publishAndServe();
    RawClient client(socketPath());
    client.greet();
    std::vector<sp<IBinder>> kept;
    for (uint32_t handle = 1; handle <= 2 * Connection::kMaxProxies; ++handle) {
        client.send(withObject(TestService::KEEP, {0, SENDER, handle}));
        ASSERT_EQ(1u, client.next(REPLY).callId);
        if (handle > Connection::kMaxProxies) kept.push_back(mService->kept());
    }
    client.send(withObject(TestService::KEEP, {0, SENDER, 1}));
    EXPECT_TRUE(client.ended());
    EXPECT_EQ(endedLine("more objects than it may give"), logLines("Binder").back());
    expectServing();
}

TEST_F(AttackTest, aSilentCrowdGivesWayAndAGreetedOneIsBounded) {
    publishAndServe();
    expectServing();  // is let in
    constexpr size_t kPlaces = 64;
    const rlimit few{4 * kPlaces, 4 * kPlaces};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
    std::deque<RawClient> silent, greeted;
    for (size_t i = 0; i < kPlaces; ++i) silent.emplace_back(socketPath());
    EXPECT_TRUE(silent.front().ended());
    for (size_t i = 1; i < kPlaces; ++i) {
        ASSERT_TRUE(greeted.emplace_back(socketPath()).served());
    }
    EXPECT_TRUE(silent.back().ended());
    EXPECT_FALSE(RawClient(socketPath()).served());
    EXPECT_FALSE(RawClient(socketPath()).served());
    EXPECT_EQ("test refuses more clients: all places taken", logLines("Binder").back());
    EXPECT_EQ(kPlaces + 1, logLines("Binder").size());
    expectServing();
    greeted.pop_back();
    bool in = false;
    for (int i = 0; i < 1000 && !in; ++i) in = RawClient(socketPath()).served();
    EXPECT_TRUE(in);
}

TEST_F(AttackTest, withoutDescriptorsNobodyIsLetInUntilSomeAreFree) {
    publishAndServe();
    auto guest = std::make_unique<RawClient>(socketPath());
    ASSERT_TRUE(guest->served());
    const rlimit few{64, 64};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
    std::vector<sim::Fd> taken;
    do {
        taken.emplace_back(dup(STDERR_FILENO));
    } while (taken.back().valid());
    taken.resize(taken.size() - 2);  // one is free, for the client's own end
    RawClient late(socketPath());
    ASSERT_TRUE(waitForLines(1));
    expectServing();
    taken.clear();
    guest.reset();
    EXPECT_TRUE(late.served());
    EXPECT_EQ(1u, logLines("Binder").size());
}

}  // namespace
}  // namespace android::binder_test
