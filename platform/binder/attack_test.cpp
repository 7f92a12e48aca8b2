// Clients that break the protocol cost their own connection, nothing else.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <ipeltoservice/IPeltoNativeClient.h>
#include <sim/base/unix_socket.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <deque>

#include "bench/allocations.h"
#include "platform/binder/testing/binder_fixture.h"

namespace android::binder_test {
namespace {

using namespace transport;

constexpr size_t kHeader = sizeof(FrameHeader);

std::string frame(uint32_t kind, uint32_t handle = 0, uint32_t code = 0,
                  const std::string& data = "") {
    const uint32_t size = static_cast<uint32_t>(data.size());
    const FrameHeader header{kMagic, size, kind, 0, kind == CALL ? 1u : 0u, handle, code, 0, 0};
    return std::string(reinterpret_cast<const char*>(&header), kHeader) + data;
}

// The frame with one field of its header replaced.
template <typename T>
std::string with(std::string frame, T FrameHeader::*field, T value) {
    FrameHeader header;
    memcpy(&header, frame.data(), kHeader);
    header.*field = value;
    memcpy(&frame[0], &header, kHeader);
    return frame;
}

const std::string kCall = frame(CALL);

std::string bytesOf(const Parcel& parcel) {
    return std::string(reinterpret_cast<const char*>(parcel.data()), parcel.dataSize());
}

// A call that carries an object, as a sound parcel would.
std::string withObject(uint32_t code, ObjectEntry entry, const std::string& more = "") {
    Parcel parcel;
    parcel.writeStrongBinder(sp<TestService>::make());
    const std::string table(reinterpret_cast<const char*>(&entry), sizeof(entry));
    return with(frame(CALL, 0, code, table + bytesOf(parcel) + more), &FrameHeader::objectCount,
                1u);
}

class RawClient {
  public:
    explicit RawClient(const sim::Fd& folder, bool greets = true)
        : mSocket(sim::connectSocket(folder, "test", SOCK_STREAM)) {
        const timeval timeout{std::chrono::seconds(kTimeout).count(), 0};
        setsockopt(mSocket.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
        if (greets) send(frame(HELLO, 0, kVersion));
    }

    void send(const std::string& bytes) {
        ::send(mSocket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    void sendLast(const std::string& bytes) {
        send(bytes);
        shutdown(mSocket.get(), SHUT_WR);
    }

    // Waits for the next frame of that kind; skips its data after the first number.
    FrameHeader next(uint32_t kind, int32_t* number = nullptr) {
        FrameHeader header{};
        while (recv(mSocket.get(), &header, kHeader, MSG_WAITALL) == ssize_t{kHeader}) {
            std::string rest(header.size, 0);
            if (!rest.empty()) recv(mSocket.get(), &rest[0], rest.size(), MSG_WAITALL);
            if (number != nullptr && rest.size() >= 4) memcpy(number, rest.data(), 4);
            if (header.kind == kind) return header;
        }
        return FrameHeader{};
    }
    // Whether it is accepted and served.
    bool served() {
        send(frame(CALL, 0, IBinder::PING_TRANSACTION));
        return next(REPLY).callId == 1;
    }
    // Whether the other side closes the connection.
    bool ended() {
        char block[4096];
        ssize_t count;
        while ((count = recv(mSocket.get(), block, sizeof(block), 0)) > 0) {
        }
        return count == 0 || errno != EAGAIN;
    }

  private:
    sim::Fd mSocket;
};

class AttackTest : public BinderTest {
  protected:
    void SetUp() override {
        BinderTest::SetUp();
        publishAndServe(mService);
        mFolder = sim::Fd(open((phone().runDir() + "/services").c_str(), O_PATH | O_CLOEXEC));
    }
    void TearDown() override {
        EXPECT_TRUE(echoes(mRemote)) << "the others are served";
        BinderTest::TearDown();
    }
    static std::string endedLine(const std::string& reason) {
        return "connection to process " + std::to_string(getpid()) + " ended: " + reason;
    }

    sim::Fd mFolder;  // of the sockets
};

// Bytes that a client sends after, or instead of, its handshake.
const struct {
    const char* reason;
    std::string bytes;
    bool greets = true;
} kAttacks[] = {
    {"bad magic", "GET / HTTP/1.1\r\nHost: nobody here at all\r\n\r\n", false},
    {"no greeting of our version", frame(HELLO, 0, kVersion + 1), false},
    {"a second greeting", frame(HELLO, 0, kVersion)},
    {"bad size", with(kCall, &FrameHeader::size, uint32_t{kMaxPayload + 4})},
    {"bad size", with(kCall, &FrameHeader::size, 3u)},
    {"bad size", with(kCall, &FrameHeader::objectCount, 1u)},
    {"too many objects", with(kCall, &FrameHeader::objectCount, UINT32_MAX)},
    {"unknown kind of frame", frame(77)},
    {"unknown flags", with(kCall, &FrameHeader::flags, 2u)},
    {"a call id that does not fit its flags", with(kCall, &FrameHeader::flags, 1u)},
    {"data where none belong", frame(RELEASE, 0, 1, "data")},
    {"a call to an object it was not given", frame(CALL, 4711)},
    {"a reply to no call", frame(REPLY)},
    {"a release of what it was not given", frame(RELEASE, 0, 1)},
    {"an object outside the data", withObject(TestService::KEEP, {4, SENDER, 1})},
    {"an object outside the data", withObject(TestService::KEEP, {UINT32_MAX - 3, SENDER, 1})},
    {"an object where none was written", withObject(TestService::KEEP, {4, SENDER, 1}, "more")},
    {"an object of nobody's", withObject(TestService::KEEP, {0, 2, 1})},
    {"an object it was not given", withObject(TestService::KEEP, {0, RECEIVER, 4711})},
    {"an object it cannot have", withObject(TestService::KEEP, {0, SENDER, 0})},
    {"the other side ended within a frame", kCall.substr(0, 4)},
};

TEST_F(AttackTest, EndsAConnectionThatBreaksTheProtocolWithOneLine) {
    size_t attacks = 0;
    for (const auto& attack : kAttacks) {
        RawClient client(mFolder, attack.greets);
        client.sendLast(attack.bytes);
        EXPECT_TRUE(client.ended()) << attack.reason;
        ASSERT_EQ(++attacks, logLines("Binder").size()) << attack.reason;
        EXPECT_EQ(endedLine(attack.reason), logLines("Binder").back());
    }
    EXPECT_EQ(0, mService->notes);
}

TEST_F(AttackTest, EndsAConnectionThatDoesNotTakeItsReplies) {
    RawClient client(mFolder);
    for (size_t i = 0; i < 8; ++i) {
        client.send(frame(CALL, 0, TestService::ECHO, std::string(kMaxPayload, 'x')));
    }
    EXPECT_TRUE(waitLogged("W Binder: " + endedLine("it does not take its replies")));
    EXPECT_TRUE(client.ended());
    EXPECT_EQ(1u, logLines("Binder").size());
}

TEST_F(AttackTest, AClientThatDoesNotReadCostsFailedCallsAlone) {
    RawClient client(mFolder);
    client.send(withObject(TestService::KEEP, {0, SENDER, 9}));
    ASSERT_EQ(1u, client.next(REPLY).callId);
    sp<IBinder> proxy = mService->kept;
    int32_t sent = 0;
    while (note(proxy, sent, 1024) == OK) ASSERT_LT(++sent, 10000);
    EXPECT_TRUE(echoes(mRemote));
    EXPECT_TRUE(proxy->isBinderAlive());
    for (int i = 0; i < 2; ++i) EXPECT_EQ(FAILED_TRANSACTION, note(proxy, sent, 1024));
    // Once it reads, it receives every call that was accepted, the number of lost ones, new calls.
    for (int32_t i = 0; i < sent; ++i) ASSERT_EQ(TestService::NOTE, client.next(CALL).code);
    int32_t lost = 0;
    EXPECT_EQ(IBinder::LOST_CALLS_TRANSACTION, client.next(CALL, &lost).code);
    EXPECT_EQ(3, lost);
    const std::string process = "process " + std::to_string(getpid());
    EXPECT_TRUE(
        waitLogged("W Binder: " + process + " reads again: 3 one-way calls to it were lost"));
    EXPECT_EQ(process + " does not read its calls: one-way ones are lost", logLines("Binder")[0]);
    EXPECT_EQ(2u, logLines("Binder").size());
    EXPECT_EQ(OK, note(proxy, sent));
    EXPECT_EQ(TestService::NOTE, client.next(CALL).code);
    while (note(proxy, sent, 1024) == OK) {
    }
    mService->kept = proxy = nullptr;
    while (client.next(CALL).code == TestService::NOTE) {
    }
    EXPECT_EQ(9u, client.next(RELEASE).handle) << "comes after the number of lost calls";
}

// While a thread waits for a reply of the client, reading goes on past a full backlog: calls
// that do not fit are refused, and the reply behind them arrives.
TEST_F(AttackTest, CutsAFloodBeforeAReplyWhichArrives) {
    ProcessState::self()->setThreadPoolMaxThreadCount(0);
    RawClient client(mFolder);
    Parcel text;
    text.writeString8(String8("hello"));
    client.send(withObject(TestService::CALL_BACK, {0, SENDER, 9}, bytesOf(text)));
    const FrameHeader callBack = client.next(CALL);
    ASSERT_EQ(9u, callBack.handle);
    constexpr size_t kTooMany = Connection::kMaxBacklog / kMaxPayload + 1;
    const std::string big = frame(CALL, 0, TestService::NOTE, std::string(kMaxPayload, 'x'));
    const std::string oneWay =
        with(with(big, &FrameHeader::flags, 1u), &FrameHeader::callId, uint64_t{0});
    for (size_t i = 0; i < kTooMany + 2; ++i) client.send(oneWay);
    client.send(with(big, &FrameHeader::callId, uint64_t{2}));
    EXPECT_EQ(FAILED_TRANSACTION, client.next(REPLY).status);
    client.send(with(frame(REPLY), &FrameHeader::callId, callBack.callId));
    const FrameHeader result = client.next(REPLY);
    EXPECT_EQ(1u, result.callId);
    EXPECT_EQ(OK, result.status);
    EXPECT_EQ(std::vector<std::string>{"calls of process " + std::to_string(getpid()) +
                                       " are dropped: too many wait"},
              logLines("Binder"));
    EXPECT_TRUE(echoes(mRemote)) << "by the only thread, after the calls that were accepted";
    EXPECT_GE(mService->notes, 1);
    EXPECT_LT(mService->notes, static_cast<int32_t>(kTooMany));
}

// Each dies in the middle of a big frame.
TEST_F(AttackTest, ADeadClientIsNotifiedAndCostsLittle) {
    constexpr size_t kClients = 32;
    std::string cut = frame(CALL, 0, 0, std::string(kMaxPayload, 'x'));
    cut.resize(cut.size() - 4);
    std::vector<sp<IPeltoNativeClient>> dead;
    size_t before = 0;
    for (size_t i = 0; i <= kClients; ++i) {
        RawClient client(mFolder);
        client.send(withObject(TestService::KEEP, {0, SENDER, 1}));
        ASSERT_EQ(1u, client.next(REPLY).callId);
        dead.push_back(interface_cast<IPeltoNativeClient>(mService->kept));
        const sp<Watcher> watcher = sp<Watcher>::make();
        ASSERT_EQ(OK, mService->kept->linkToDeath(watcher));
        client.sendLast(cut);
        ASSERT_TRUE(wait(watcher->told));
        EXPECT_EQ(DEAD_OBJECT, dead.back()->onNativeEvent("type", "info"));
        if (i == 0) before = bench::heapInUse();
    }
    EXPECT_LT(bench::heapInUse(), before + kClients * 4096);
}

TEST_F(AttackTest, BoundsTheLiveObjectsOfAClient) {
    std::vector<sp<IBinder>> kept;
    sp<IBinder> last, more = sp<TestService>::make();
    while (kept.size() < Connection::kMaxProxies) {
        ASSERT_EQ(OK, keep(last = sp<TestService>::make()));
        kept.push_back(mService->kept);
    }
    for (int i = 0; i < 3; ++i) EXPECT_EQ(FAILED_TRANSACTION, keep(more));
    EXPECT_EQ(OK, keep(last)) << "what it has already";
    EXPECT_EQ(1u, logLines("Binder").size()) << logLines("Binder").front();
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    while (more->getStrongCount() > 1) ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    kept.erase(kept.begin());
    EXPECT_EQ(OK, keep(more));
    kept.clear();
    // Of those ever given, over all its connections.
    status_t status = OK;
    size_t given = Connection::kMaxProxies + 1;
    while ((status = keep(sp<TestService>::make())) == OK) ++given;
    EXPECT_EQ(FAILED_TRANSACTION, status);
    EXPECT_EQ(ObjectQuota::kMaxObjects, given);
    RawClient other(mFolder);
    other.send(withObject(TestService::KEEP, {0, SENDER, 9}));
    EXPECT_EQ(FAILED_TRANSACTION, other.next(REPLY).status);
    EXPECT_EQ(2u, logLines("Binder").size()) << logLines("Binder").back();
}

TEST_F(AttackTest, EvictsSilentClientsAndRefusesOnesPastTheBound) {
    EXPECT_TRUE(echoes(mRemote));  // completes a handshake
    constexpr size_t kPlaces = 64;
    const rlimit few{4 * kPlaces, 4 * kPlaces};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
    std::deque<RawClient> silent, greeted;
    for (size_t i = 0; i < kPlaces; ++i) silent.emplace_back(mFolder, false);
    EXPECT_TRUE(silent.front().ended());
    RawClient waiting(mFolder), keeping(mFolder);
    waiting.send(frame(CALL, 0, TestService::WAIT));
    ASSERT_TRUE(wait(mService->entered));
    keeping.send(withObject(TestService::KEEP, {0, SENDER, 9}));
    ASSERT_EQ(1u, keeping.next(REPLY).callId);
    for (size_t i = 3; i < kPlaces; ++i) {
        ASSERT_TRUE(greeted.emplace_back(mFolder).served());
    }
    EXPECT_TRUE(silent.back().ended());
    for (int i = 0; i < 2; ++i) EXPECT_EQ(WOULD_BLOCK, RawClient(mFolder).next(HELLO).status);
    EXPECT_EQ("test refuses more clients: all places taken", logLines("Binder").back());
    EXPECT_EQ(kPlaces + 1, logLines("Binder").size());
    greeted.pop_back();
    RawClient last(mFolder);
    while (!last.served()) last = RawClient(mFolder);

    // The one that has not called for longest gives its place, but none that waits or has given
    // an object.
    advance(std::chrono::nanoseconds(AcceptedConnections::kIdleNanos));
    EXPECT_TRUE(echoes(mRemote) && greeted.front().served());
    EXPECT_TRUE(RawClient(mFolder).served());
    EXPECT_TRUE(greeted[1].ended());
    mService->released.set_value();
    EXPECT_TRUE(waiting.next(REPLY).callId == 1 && keeping.served() && greeted.front().served());

    // So does one whose queue of new clients is full.
    sim::PublishedSocket crowded;
    ASSERT_EQ(0, sim::publishSocket(mFolder, "crowded", SOCK_STREAM, crowded));
    ASSERT_EQ(0, listen(crowded.listening.get(), 0));
    const sim::Fd queued = sim::connectSocket(mFolder, "crowded", SOCK_STREAM);
    EXPECT_EQ(WOULD_BLOCK, find("crowded")->pingBinder());
    EXPECT_EQ(WOULD_BLOCK, find("crowded")->linkToDeath(sp<Watcher>::make()));
}

// The service comes back while the loop is never idle and none of its connections ends.
TEST_F(AttackTest, AcceptsNobodyWhileDescriptorsAreShort) {
    EXPECT_TRUE(echoes(mRemote));  // is accepted
    const rlimit few{64, 64};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
    std::vector<sim::Fd> taken;
    do {
        taken.emplace_back(dup(STDERR_FILENO));
    } while (taken.back().valid());
    taken.resize(taken.size() - 2);  // frees one, for the client's end
    RawClient late(mFolder);
    ASSERT_TRUE(waitLogged("E Binder: test lets nobody in for now: Too many open files"));
    std::atomic<bool> served{false};
    const auto caller = std::async(std::launch::async, [&] {
        do {
            EXPECT_TRUE(echoes(mRemote));
        } while (!served);
    });
    taken.clear();
    EXPECT_TRUE(late.served());
    served = true;
    EXPECT_EQ(1u, logLines("Binder").size());
}

}  // namespace
}  // namespace android::binder_test
