#include <gtest/gtest.h>
#include <signal.h>
#include <sim/base/unix_socket.h>
#include <sys/socket.h>

#include <thread>

#include "platform/binder/testing/binder_fixture.h"

namespace android::binder_test {
namespace {

using transport::kMaxPayload;

TEST_F(BinderTest, CallsArriveAndNestAndResultsComeBack) {
    publishAndServe(mService);
    EXPECT_TRUE(echoes(mRemote));
    Parcel nested, data, reply;
    nested.writeStrongBinder(sp<TestService>::make());
    nested.writeString8(String8("there and back"));
    EXPECT_EQ(OK, mRemote->transact(TestService::CALL_BACK, nested, &reply));
    EXPECT_EQ(String8("there and back"), reply.readString8());
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
    EXPECT_EQ(0, mService->notes);
}

TEST_F(BinderTest, OneObjectIsOneProxyAndComesHomeAsItself) {
    publishAndServe(mService);
    sp<IBinder> child = sp<TestService>::make();
    EXPECT_EQ(OK, keep(child));
    sp<IBinder> proxy = mService->kept;
    EXPECT_NE(nullptr, proxy->remoteBinder());
    EXPECT_EQ(OK, keep(child));
    EXPECT_EQ(proxy, std::exchange(mService->kept, nullptr));

    // The connection keeps the object for its proxy, and releases it with the last proxy.
    const wp<IBinder> weak = child;
    child.clear();
    EXPECT_EQ(OK, proxy->pingBinder());
    proxy.clear();
    while (weak.promote() != nullptr) std::this_thread::yield();

    // Objects of other processes are not passed on.
    ASSERT_EQ(OK, defaultServiceManager()->addService(String16("b"), sp<TestService>::make()));
    EXPECT_EQ(BAD_TYPE, keep(transport::Process::get().services().connect("b")));
    EXPECT_EQ(BAD_TYPE, defaultServiceManager()->addService(String16("third"), mRemote));
    EXPECT_EQ(1u, logLines("Binder").size());
    EXPECT_EQ(OK, keep(mRemote));
    EXPECT_EQ(mService, mService->kept);
}

TEST_F(BinderTest, OneWayCallsToAnObjectRunOneAtATimeInOrder) {
    publishAndServe(mService);
    constexpr int kCalls = 500;
    for (int i = 0; i < kCalls; ++i) {
        while (note(mRemote, i) == FAILED_TRANSACTION) mRemote->pingBinder();
    }
    ASSERT_TRUE(mService->noted(kCalls));

    // The next one-way call waits for this one to end; two-way calls are served meanwhile.
    EXPECT_EQ(OK, mRemote->transact(TestService::WAIT, Parcel(), nullptr, IBinder::FLAG_ONEWAY));
    ASSERT_TRUE(wait(mService->entered));
    EXPECT_EQ(OK, note(mRemote, kCalls));
    EXPECT_TRUE(echoes(mRemote));
    EXPECT_EQ(kCalls, mService->notes);
    mService->released.set_value();
    EXPECT_TRUE(mService->noted(kCalls + 1));
}

// Without a thread to execute them, calls fill the receiver's backlog, the sockets and the sender's
// queue; then sending fails at once. Accepted calls arrive, in order.
TEST_F(BinderTest, AFullConnectionFailsCallsAndLosesNone) {
    publish(mService);
    int32_t sent = 0;
    while (note(mRemote, sent, 1024) == OK) ASSERT_LT(++sent, 10000);
    ProcessState::self()->startThreadPool();
    EXPECT_TRUE(mService->noted(sent));
    EXPECT_TRUE(echoes(mRemote));
    EXPECT_EQ(sent, mService->notes);
    EXPECT_EQ(2u, logLines("Binder").size()) << "that one is lost, and how many were";
}

TEST_F(BinderTest, AServiceKilledInACallIsDeadAndReplaced) {
    Peer server(phone(), "there");
    EXPECT_EQ(ALREADY_EXISTS, defaultServiceManager()->addService(String16("there"), mService));
    const sp<IBinder> remote = find("there");
    ASSERT_NE(nullptr, remote);
    EXPECT_EQ(remote, find("there"));
    const sp<Watcher> watcher = sp<Watcher>::make();
    EXPECT_EQ(OK, remote->linkToDeath(watcher));

    auto call = waiting(remote);
    EXPECT_TRUE(echoes(remote));
    server.signal(SIGKILL);
    EXPECT_EQ(DEAD_OBJECT, call.get());
    EXPECT_TRUE(wait(watcher->told));
    EXPECT_EQ(remote, watcher->died.promote());
    EXPECT_FALSE(remote->isBinderAlive());
    EXPECT_EQ(DEAD_OBJECT, remote->pingBinder());
    EXPECT_EQ(DEAD_OBJECT, remote->linkToDeath(watcher));
    EXPECT_EQ(-SIGKILL, server.wait()) << "its descriptors close one after the other";
    EXPECT_EQ(nullptr, find("there"));
    EXPECT_EQ(OK, defaultServiceManager()->addService(String16("there"), mService));
}

TEST_F(BinderTest, ALateReplyIsTakenForNoOtherCalls) {
    publishAndServe(mService);
    ProcessState::self()->setCallTimeout(20000000);
    EXPECT_EQ(TIMED_OUT, waiting(mRemote).get());
    EXPECT_EQ(DEAD_OBJECT, mRemote->pingBinder());
    ProcessState::self()->setCallTimeout(0);
    ASSERT_TRUE(wait(mService->entered)) << "is executed all the same";
    mService->released.set_value();
    EXPECT_TRUE(echoes(transport::Process::get().services().connect("test")));
}

TEST_F(BinderTest, NamesAreCheckedHeldAndTakenOver) {
    const auto manager = defaultServiceManager();
    const std::string longest(64, 'n');
    for (const auto& bad : std::vector<std::string>{"", ".hidden", "a/b", "a b", longest + "n"}) {
        EXPECT_EQ(BAD_VALUE, manager->addService(String16(bad.c_str()), mService)) << bad;
        EXPECT_EQ(nullptr, find(bad.c_str())) << bad;
    }
    EXPECT_EQ(OK, manager->addService(String16(longest.c_str()), mService));
    EXPECT_EQ(BAD_VALUE, manager->addService(String16("nothing"), nullptr));
    EXPECT_EQ(nullptr, find("nobody"));
    {
        // A socket without a listener, as a killed process leaves it.
        const sim::Fd folder(open((phone().runDir() + "/services").c_str(), O_PATH));
        sim::PublishedSocket stale;
        ASSERT_EQ(0, sim::publishSocket(folder, "test", SOCK_STREAM, stale));
    }
    EXPECT_EQ(nullptr, find("test"));
    publishAndServe(mService);
    EXPECT_EQ(ALREADY_EXISTS, manager->addService(String16("test"), sp<TestService>::make()));
    EXPECT_EQ(OK, mRemote->pingBinder());
}

TEST_F(BinderTest, ShuttingDownEndsCallsInOrder) {
    publish(mService);
    std::thread pool([] { IPCThreadState::self()->joinThreadPool(); });
    auto call = waiting(mRemote);
    ASSERT_TRUE(wait(mService->entered));
    EXPECT_EQ(OK, note(mRemote, 0));  // waits: the only thread is taken
    ProcessState::self()->shutDown();
    EXPECT_FALSE(exists("/../run/services/test"));
    EXPECT_EQ(DEAD_OBJECT, mRemote->pingBinder());
    EXPECT_EQ(nullptr, find("test"));
    EXPECT_EQ(INVALID_OPERATION, defaultServiceManager()->addService(String16("late"), mService));
    mService->released.set_value();
    EXPECT_EQ(OK, call.get());
    pool.join();
    EXPECT_EQ(0, mService->notes);
}

}  // namespace
}  // namespace android::binder_test
