#pragma once

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <binder/transport/binder_process.h>

#include <future>
#include <string>

#include "platform/binder/testing/test_service.h"
#include "tests/support/phone_fixture.h"
#include "tests/support/program.h"

namespace android::binder_test {

// Publishes a service and calls it as a client does, over a socket, in one process.
class BinderTest : public PhoneTest {
  protected:
    void publish(const sp<IBinder>& service, const char* name = "test") {
        ASSERT_EQ(OK, defaultServiceManager()->addService(String16(name), service));
        mRemote = transport::Process::get().services().connect(name);
        ASSERT_NE(nullptr, mRemote);
    }
    void publishAndServe(const sp<IBinder>& service, const char* name = "test") {
        publish(service, name);
        ProcessState::self()->startThreadPool();
    }
    sp<IBinder> find(const char* name) {
        return defaultServiceManager()->getService(String16(name));
    }

    // Gives the service an object to keep and checks that it comes back.
    status_t keep(const sp<IBinder>& object) {
        Parcel data, reply;
        data.writeStrongBinder(object);
        const status_t status = mRemote->transact(TestService::KEEP, data, &reply);
        EXPECT_TRUE(status != OK || reply.readStrongBinder() == object);
        return status;
    }
    // Calls WAIT on another thread, which ends with the call's status.
    std::future<status_t> waiting(const sp<IBinder>& service) {
        return std::async(std::launch::async, [service] {
            Parcel data, reply;
            const status_t status = service->transact(TestService::WAIT, data, &reply);
            EXPECT_TRUE(status != OK || reply.readInt32() == getpid());
            return status;
        });
    }

    const sp<TestService> mService = sp<TestService>::make();
    sp<IBinder> mRemote;
};

// Another process on the same phone: test_peer.cpp.
class Peer : public Program {
  public:
    Peer(sim::Phone& phone, const char* name) : Program({BINDER_TEST_PEER, phone.folder(), name}) {
        EXPECT_EQ("up", line());
    }
};

}  // namespace android::binder_test
