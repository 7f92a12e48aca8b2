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
    String8 answer;
    EXPECT_EQ(OK, echo(mRemote, String8("a\0b", 3), &answer));
    EXPECT_EQ(String8("a\0b", 3), answer);
    EXPECT_EQ(OK, mRemote->pingBinder());
    EXPECT_EQ(String16("pelto.test"), mRemote->getInterfaceDescriptor());
    Parcel data, reply;
    EXPECT_EQ(UNKNOWN_TRANSACTION, mRemote->transact(4711, data, &reply));
    EXPECT_EQ(0u, reply.dataSize());
    EXPECT_EQ(mService, defaultServiceManager()->getService(String16("test")));
    EXPECT_EQ(INVALID_OPERATION, mService->linkToDeath(sp<Watcher>::make()));
}

TEST_F(BinderTest, whatIsTooBigFailsAtTheCallerAndNothingIsSent) {
    publishAndServe();
    Parcel data, reply;
    data.writeInplace(kMaxPayload);
    EXPECT_EQ(OK, mRemote->transact(TestService::ECHO, data, &reply));
    EXPECT_EQ(kMaxPayload, reply.dataSize());
    data.writeInt32(0);
    EXPECT_EQ(FAILED_TRANSACTION, mRemote->transact(TestService::NOTE, data, &reply));
    EXPECT_EQ(FAILED_TRANSACTION,
              mRemote->transact(TestService::NOTE, data, nullptr, IBinder::FLAG_ONEWAY));
    EXPECT_EQ(0, countOfNotes());
}

TEST_F(BinderTest, oneObjectIsOneProxyAndComesHomeAsItself) {
    publishAndServe();
    Latch gone;
    sp<IBinder> child = sp<Child>::make(&gone), back;
    bool again = true;
    EXPECT_EQ(OK, keep(child, &back, &again));
    EXPECT_EQ(child, back);
    EXPECT_FALSE(again);
    const sp<IBinder> proxy = mService->kept();
    EXPECT_NE(nullptr, proxy->remoteBinder());
    EXPECT_EQ(OK, keep(child, &back, &again));
    EXPECT_TRUE(again);
    EXPECT_EQ(proxy, mService->kept());

    // Its owner keeps it for the proxy alone; with the last proxy it goes.
    child.clear();
    back.clear();
    mService->drop();
    EXPECT_EQ(OK, proxy->pingBinder());
    const_cast<sp<IBinder>&>(proxy).clear();
    EXPECT_TRUE(gone.wait());
}

TEST_F(BinderTest, objectsOfOthersAreNotPassedOn) {
    publishAndServe();
    const sp<TestService> second = sp<TestService>::make();
    ASSERT_EQ(OK, defaultServiceManager()->addService(String16("second"), second));
    sp<IBinder> back;
    bool again = false;
    EXPECT_EQ(BAD_TYPE,
              keep(transport::Process::get().services().connect("second"), &back, &again));
    EXPECT_EQ(BAD_TYPE, defaultServiceManager()->addService(String16("third"), mRemote));
    EXPECT_EQ(1u, logLines("Binder").size());
    EXPECT_EQ(OK, keep(mRemote, &back, &again));
    EXPECT_EQ(mRemote, back);
    EXPECT_EQ(mService, mService->kept());
}

TEST_F(BinderTest, callsNestAndRunAtOnce) {
    publishAndServe();
    const sp<TestService> mine = sp<TestService>::make();
    std::thread waiting([&] {
        Parcel data, reply;
        EXPECT_EQ(OK, mRemote->transact(TestService::WAIT, data, &reply));
        EXPECT_EQ(getpid(), reply.readInt32());
    });
    ASSERT_TRUE(mService->entered.wait());
    Parcel data, reply;
    data.writeStrongBinder(mine);
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
    ASSERT_TRUE(mService->waitForNotes(kCalls));
    for (int i = 0; i < kCalls; ++i) ASSERT_EQ(i, mService->notes()[static_cast<size_t>(i)]);

    // The second waits for the first one's end, while others are served.
    Parcel none;
    EXPECT_EQ(OK, mRemote->transact(TestService::WAIT, none, nullptr, IBinder::FLAG_ONEWAY));
    ASSERT_TRUE(mService->entered.wait());
    EXPECT_EQ(OK, note(mRemote, kCalls));
    EXPECT_EQ(kCalls, countOfNotes());
    mService->released.open();
    EXPECT_TRUE(mService->waitForNotes(kCalls + 1));
}

// Without a thread to execute them, calls fill the receiver's backlog, the sockets and the sender's
// queue; then sending fails at once. What was taken arrives, in order.
TEST_F(BinderTest, aFullConnectionFailsCallsAndLosesNone) {
    publish();
    int32_t sent = 0;
    while (note(mRemote, sent, 1024) == OK) {
        ASSERT_LT(++sent, 10000);
    }
    EXPECT_EQ(FAILED_TRANSACTION, note(mRemote, -1, 1024));
    Parcel data, reply;
    data.writeInplace(100000);
    EXPECT_EQ(FAILED_TRANSACTION, mRemote->transact(TestService::ECHO, data, &reply));
    EXPECT_TRUE(mRemote->isBinderAlive());
    ProcessState::self()->startThreadPool();
    ASSERT_TRUE(mService->waitForNotes(static_cast<size_t>(sent)));
    for (int32_t i = 0; i < sent; ++i) ASSERT_EQ(i, mService->notes()[static_cast<size_t>(i)]);
    EXPECT_EQ(sent, countOfNotes());
    EXPECT_TRUE(logLines("Binder").empty());
}

TEST_F(BinderTest, namesAreCheckedHeldAndTakenOver) {
    const auto manager = defaultServiceManager();
    for (const char* bad : {"", ".hidden", "a/b", "..", "a b", "line\n"}) {
        EXPECT_EQ(BAD_VALUE, manager->addService(String16(bad), mService)) << bad;
        EXPECT_EQ(nullptr, manager->getService(String16(bad))) << bad;
    }
    const String16 longest(std::string(64, 'n').c_str());
    EXPECT_EQ(OK, manager->addService(longest, mService));
    EXPECT_EQ(BAD_VALUE, manager->addService(String16(std::string(65, 'n').c_str()), mService));
    EXPECT_EQ(BAD_VALUE, manager->addService(String16("nothing"), nullptr));
    EXPECT_EQ(nullptr, manager->getService(String16("nobody")));

    // A socket that nobody listens at: what a killed process leaves.
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketPath().copy(address.sun_path, sizeof(address.sun_path) - 1);
    {
        const sim::Fd stale(socket(AF_UNIX, SOCK_STREAM, 0));
        ASSERT_EQ(0, bind(stale.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    }
    EXPECT_EQ(nullptr, manager->getService(String16("test")));
    publishAndServe();
    EXPECT_EQ(ALREADY_EXISTS, manager->addService(String16("test"), sp<TestService>::make()));
    EXPECT_EQ(OK, mRemote->pingBinder());
}

// A socket's address holds 108 bytes.
class LongFolderTest : public BinderTest {
  protected:
    void SetUp() override {
        mFolder = mParent + "/" + std::string(200, 'f');
        std::filesystem::create_directories(mFolder);
        setenv("TEST_TMPDIR", mFolder.c_str(), 1);
        BinderTest::SetUp();
    }
    void TearDown() override {
        BinderTest::TearDown();
        std::filesystem::remove_all(mParent);
    }

  private:
    const std::string mParent = testing::TempDir() + "binder" + std::to_string(getpid());
    std::string mFolder;
};

TEST_F(LongFolderTest, namesAreFound) {
    publishAndServe();
    EXPECT_EQ(OK, mRemote->pingBinder());
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
    EXPECT_EQ(OK, note(mRemote, 1));  // waits: the only thread is taken
    ProcessState::self()->shutDown();
    EXPECT_NE(0, access(socketPath().c_str(), F_OK));
    EXPECT_EQ(DEAD_OBJECT, mRemote->pingBinder());
    EXPECT_EQ(nullptr, defaultServiceManager()->getService(String16("test")));
    EXPECT_EQ(INVALID_OPERATION, defaultServiceManager()->addService(String16("late"), mService));
    mService->released.open();
    running.join();
    pool.join();
    EXPECT_TRUE(mService->notes().empty());
}

}  // namespace
}  // namespace android::binder_test
