#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <filesystem>
#include <thread>

#include "platform/binder/testing/binder_fixture.h"

namespace android::binder_test {
namespace {

using transport::kMaxPayload;

TEST_F(BinderTest, callsArriveAndResultsComeBack) {
    publishAndServe();
    EXPECT_TRUE(echoes(mRemote));
    EXPECT_EQ(OK, mRemote->pingBinder());
    EXPECT_EQ(String16("pelto.test"), mRemote->getInterfaceDescriptor());
    Parcel data, reply;
    EXPECT_EQ(UNKNOWN_TRANSACTION, mRemote->transact(4711, data, &reply));
    EXPECT_EQ(0u, reply.dataSize());
    EXPECT_EQ(mService, find("test"));
    EXPECT_EQ(INVALID_OPERATION, mService->linkToDeath(sp<Watcher>::make()));

    // A call that is too big fails at the caller; nothing is sent.
    data.writeInplace(kMaxPayload);
    EXPECT_EQ(OK, mRemote->transact(TestService::ECHO, data, &reply));
    EXPECT_EQ(kMaxPayload, reply.dataSize());
    data.writeInt32(0);
    EXPECT_EQ(FAILED_TRANSACTION, mRemote->transact(TestService::NOTE, data, &reply));
    EXPECT_EQ(FAILED_TRANSACTION, note(mRemote, 0, kMaxPayload));
    EXPECT_EQ(0, mService->notes());
}

// Opens the latch when it is destroyed.
class Child : public BBinder {
  public:
    explicit Child(Latch* gone) : mGone(gone) {}
    ~Child() override { mGone->open(); }

  private:
    Latch* const mGone;
};

TEST_F(BinderTest, oneObjectIsOneProxyAndComesHomeAsItself) {
    publishAndServe();
    Latch gone;
    sp<IBinder> child = sp<Child>::make(&gone), back;
    bool again = true;
    EXPECT_EQ(OK, keep(child, &back, &again));
    EXPECT_EQ(child, back);
    EXPECT_FALSE(again);
    sp<IBinder> proxy = mService->kept();
    EXPECT_NE(nullptr, proxy->remoteBinder());
    EXPECT_EQ(OK, keep(child, &back, &again));
    EXPECT_TRUE(again);

    // The connection keeps the object for its proxy, and releases it with the last proxy.
    child.clear();
    back.clear();
    EXPECT_EQ(proxy, mService->keep(nullptr));
    EXPECT_EQ(OK, proxy->pingBinder());
    proxy.clear();
    EXPECT_TRUE(gone.wait());

    // Objects of other processes are not passed on.
    ASSERT_EQ(OK, defaultServiceManager()->addService(String16("b"), sp<TestService>::make()));
    EXPECT_EQ(BAD_TYPE, keep(transport::Process::get().services().connect("b"), &back, &again));
    EXPECT_EQ(BAD_TYPE, defaultServiceManager()->addService(String16("third"), mRemote));
    EXPECT_EQ(1u, logLines("Binder").size());
    EXPECT_EQ(OK, keep(mRemote, &back, &again));
    EXPECT_EQ(mRemote, back);
    EXPECT_EQ(mService, mService->kept());
}

TEST_F(BinderTest, callsNestAndRunAtOnce) {
    publishAndServe();
    std::thread waiting([&] {
        Parcel data, reply;
        EXPECT_EQ(OK, mRemote->transact(TestService::WAIT, data, &reply));
        EXPECT_EQ(getpid(), reply.readInt32());
    });
    ASSERT_TRUE(mService->entered.wait());
    Parcel data, reply;
    data.writeStrongBinder(sp<TestService>::make());
    data.writeString8(String8("there and back"));
    EXPECT_EQ(OK, mRemote->transact(TestService::CALL_BACK, data, &reply));
    EXPECT_EQ(String8("there and back"), reply.readString8());
    mService->released.open();
    waiting.join();
}

TEST_F(BinderTest, oneWayCallsToAnObjectRunOneAtATimeInOrder) {
    publishAndServe();
    constexpr int kCalls = 2000;
    for (int i = 0; i < kCalls; ++i) {
        while (note(mRemote, i) == FAILED_TRANSACTION) mRemote->pingBinder();
    }
    ASSERT_TRUE(mService->noted(kCalls));

    // The second one-way call waits for the first to end; two-way calls are served meanwhile.
    Parcel none;
    EXPECT_EQ(OK, mRemote->transact(TestService::WAIT, none, nullptr, IBinder::FLAG_ONEWAY));
    ASSERT_TRUE(mService->entered.wait());
    EXPECT_EQ(OK, note(mRemote, kCalls));
    EXPECT_TRUE(echoes(mRemote));
    EXPECT_EQ(kCalls, mService->notes());
    mService->released.open();
    EXPECT_TRUE(mService->noted(kCalls + 1));
}

// Without a thread to execute them, calls fill the receiver's backlog, the sockets and the sender's
// queue; then sending fails at once. Accepted calls arrive, in order.
TEST_F(BinderTest, aFullConnectionFailsCallsAndLosesNone) {
    publish();
    int32_t sent = 0;
    while (note(mRemote, sent, 1024) == OK) {
        ASSERT_LT(++sent, 10000);
    }
    EXPECT_TRUE(mRemote->isBinderAlive());
    ProcessState::self()->startThreadPool();
    EXPECT_TRUE(mService->noted(sent));
    EXPECT_TRUE(echoes(mRemote));
    EXPECT_EQ(sent, mService->notes());
    EXPECT_TRUE(logLines("Binder").empty());
}

TEST_F(BinderTest, namesAreCheckedHeldAndTakenOver) {
    const auto manager = defaultServiceManager();
    const std::string longest(64, 'n');
    for (const std::string& bad :
         std::vector<std::string>{"", ".hidden", "a/b", "..", "a b", "line\n", longest + "n"}) {
        EXPECT_EQ(BAD_VALUE, manager->addService(String16(bad.c_str()), mService)) << bad;
        EXPECT_EQ(nullptr, find(bad.c_str())) << bad;
    }
    EXPECT_EQ(OK, manager->addService(String16(longest.c_str()), mService));
    EXPECT_EQ(BAD_VALUE, manager->addService(String16("nothing"), nullptr));
    EXPECT_EQ(nullptr, find("nobody"));

    // A socket without a listener, as a killed process leaves it.
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketPath().copy(address.sun_path, sizeof(address.sun_path) - 1);
    {
        const sim::Fd stale(socket(AF_UNIX, SOCK_STREAM, 0));
        ASSERT_EQ(0, bind(stale.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    }
    EXPECT_EQ(nullptr, find("test"));
    publishAndServe();
    EXPECT_EQ(ALREADY_EXISTS, manager->addService(String16("test"), sp<TestService>::make()));
    EXPECT_EQ(OK, mRemote->pingBinder());
}

// A socket's address holds 108 bytes.
TEST(BinderFolderTest, namesAreFoundInAFolderWithALongName) {
    const std::string folder =
        testing::TempDir() + std::to_string(getpid()) + std::string(200, 'f');
    sim::Phone::create(folder);
    const sp<TestService> service = sp<TestService>::make();
    EXPECT_EQ(OK, defaultServiceManager()->addService(String16("test"), service));
    EXPECT_NE(nullptr, transport::Process::get().services().connect("test"));
    std::filesystem::remove_all(folder);
}

TEST_F(BinderTest, shuttingDownEndsCallsInOrder) {
    publish();
    std::thread pool([] { IPCThreadState::self()->joinThreadPool(); });
    std::thread running([&] {
        Parcel data, reply;
        EXPECT_EQ(OK, mRemote->transact(TestService::WAIT, data, &reply));
        EXPECT_EQ(getpid(), reply.readInt32());
    });
    ASSERT_TRUE(mService->entered.wait());
    EXPECT_EQ(OK, note(mRemote, 0));  // waits: the only thread is taken
    ProcessState::self()->shutDown();
    EXPECT_FALSE(exists("/../run/services/test"));
    EXPECT_EQ(DEAD_OBJECT, mRemote->pingBinder());
    EXPECT_EQ(nullptr, find("test"));
    EXPECT_EQ(INVALID_OPERATION, defaultServiceManager()->addService(String16("late"), mService));
    mService->released.open();
    running.join();
    pool.join();
    EXPECT_EQ(0, mService->notes());
}

}  // namespace
}  // namespace android::binder_test
