#include <gtest/gtest.h>
#include <signal.h>

#include <thread>

#include "platform/binder/testing/binder_fixture.h"

namespace android::binder_test {
namespace {

using BinderProcessTest = BinderTest;

TEST_F(BinderProcessTest, aServiceKilledInACallIsDeadAndReplaced) {
    Peer server(phone(), "serve", "there");
    EXPECT_EQ(ALREADY_EXISTS, defaultServiceManager()->addService(String16("there"), mService));
    const sp<IBinder> remote = find("there");
    ASSERT_NE(nullptr, remote);
    EXPECT_EQ(remote, find("there"));
    const sp<Watcher> watcher = sp<Watcher>::make();
    EXPECT_EQ(OK, remote->linkToDeath(watcher));

    std::thread waiting([&] {
        Parcel data, reply;
        EXPECT_EQ(DEAD_OBJECT, remote->transact(TestService::WAIT, data, &reply));
    });
    EXPECT_TRUE(echoes(remote));
    server.signal(SIGKILL);
    EXPECT_EQ(-SIGKILL, server.wait());
    waiting.join();
    EXPECT_TRUE(watcher->told.wait());
    EXPECT_EQ(remote, watcher->died.promote());
    EXPECT_FALSE(remote->isBinderAlive());
    EXPECT_EQ(DEAD_OBJECT, remote->pingBinder());
    EXPECT_EQ(DEAD_OBJECT, remote->linkToDeath(watcher));
    EXPECT_EQ(nullptr, find("there"));
}

TEST_F(BinderProcessTest, whoDoesNotReadCostsFailedCallsAndNobodyElse) {
    const auto noted = [](const sp<IBinder>& client, int32_t count) {
        Parcel data, reply;
        data.writeInt32(count);
        return client->transact(TestService::NOTED, data, &reply) == OK && reply.readBool();
    };
    publishAndServe();
    Peer first(phone(), "give", "test");
    const sp<IBinder> stopped = mService->keep(nullptr);
    Peer second(phone(), "give", "test");
    const sp<IBinder> reading = mService->keep(nullptr);
    first.signal(SIGSTOP);
    constexpr int32_t kCalls = 10000;
    int32_t failed = 0;
    for (int32_t i = 0; i < kCalls; ++i) {
        failed += note(stopped, i, 1024) != OK ? 1 : 0;
        ASSERT_EQ(OK, note(reading, i, 1024));
        if (i % 200 == 0) {
            ASSERT_EQ(OK, reading->pingBinder());
        }
    }
    EXPECT_GT(failed, kCalls / 2);
    EXPECT_LT(failed, kCalls);
    EXPECT_TRUE(noted(reading, kCalls));
    EXPECT_TRUE(stopped->isBinderAlive());
    // Once it reads again, it receives every call that was accepted, and new ones.
    first.signal(SIGCONT);
    while (stopped->pingBinder() == FAILED_TRANSACTION) {
    }
    EXPECT_TRUE(noted(stopped, kCalls - failed));
}

}  // namespace
}  // namespace android::binder_test
