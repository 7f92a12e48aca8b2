#include <gtest/gtest.h>

#include <thread>

#include "platform/binder/testing/binder_fixture.h"
#include "platform/binder/testing/peer.h"

namespace android::binder_test {
namespace {

class BinderProcessTest : public BinderTest {
  protected:
    sp<IBinder> find(const char* name) {
        return defaultServiceManager()->getService(String16(name));
    }

    // A client process whose TestService this process's service has been given.
    std::unique_ptr<Peer> client(sp<IBinder>* object) {
        auto peer =
            std::make_unique<Peer>(phone().folder(), std::vector<std::string>{"give", "test"});
        EXPECT_EQ("given", peer->hear());
        *object = mService->kept();
        mService->drop();
        return peer;
    }
};

TEST_F(BinderProcessTest, aServiceKilledInACallIsDeadAndReplaced) {
    Peer server(phone().folder(), {"serve", "there"});
    ASSERT_EQ("up", server.hear());
    EXPECT_EQ(ALREADY_EXISTS, defaultServiceManager()->addService(String16("there"), mService));
    const sp<IBinder> remote = find("there");
    ASSERT_NE(nullptr, remote);
    EXPECT_EQ(remote, find("there"));
    const sp<Watcher> watcher = sp<Watcher>::make(), unlinked = sp<Watcher>::make();
    EXPECT_EQ(OK, remote->linkToDeath(watcher));
    EXPECT_EQ(OK, remote->linkToDeath(unlinked));
    EXPECT_EQ(OK, remote->unlinkToDeath(unlinked));
    EXPECT_EQ(NAME_NOT_FOUND, remote->unlinkToDeath(unlinked));

    std::thread waiting([&] {
        Parcel data, reply;
        EXPECT_EQ(DEAD_OBJECT, remote->transact(TestService::WAIT, data, &reply));
    });
    String8 answer;
    EXPECT_EQ(OK, echo(remote, String8("alive"), &answer));
    server.end(SIGKILL);
    waiting.join();
    EXPECT_TRUE(watcher->told.wait());
    EXPECT_EQ(1, watcher->times);
    EXPECT_EQ(remote, watcher->died.promote());
    EXPECT_EQ(0, unlinked->times);
    EXPECT_FALSE(remote->isBinderAlive());
    EXPECT_EQ(DEAD_OBJECT, remote->pingBinder());
    EXPECT_EQ(DEAD_OBJECT, remote->linkToDeath(unlinked));
    EXPECT_EQ(nullptr, find("there"));
}

TEST_F(BinderProcessTest, whoDoesNotReadCostsFailedCallsAndNobodyElse) {
    publishAndServe();
    sp<IBinder> stopped, reading;
    const auto first = client(&stopped), second = client(&reading);
    first->signal(SIGSTOP);
    constexpr int32_t kCalls = 10000;
    int failed = 0;
    for (int32_t i = 0; i < kCalls; ++i) {
        failed += note(stopped, i, 1024) != OK ? 1 : 0;
        ASSERT_EQ(OK, note(reading, i, 1024));
        if (i % 200 == 0) {
            ASSERT_EQ(OK, reading->pingBinder());
        }
    }
    EXPECT_GT(failed, kCalls / 2);
    EXPECT_LT(failed, kCalls);
    second->say("notes " + std::to_string(kCalls));
    EXPECT_EQ("ordered", second->hear());
    EXPECT_TRUE(stopped->isBinderAlive());
    // Reading again, it has all that was taken and is as good as before.
    first->signal(SIGCONT);
    first->say("notes " + std::to_string(kCalls - failed));
    EXPECT_EQ("ordered", first->hear());
    EXPECT_EQ(OK, stopped->pingBinder());
}

}  // namespace
}  // namespace android::binder_test
