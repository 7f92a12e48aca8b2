#pragma once

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <binder/transport/process.h>

#include <string>
#include <vector>

#include "platform/binder/testing/test_service.h"
#include "tests/support/phone_test.h"

namespace android::binder_test {

// Publishes a TestService and calls it as a client does, over a socket, in one process.
class BinderTest : public PhoneTest {
  protected:
    void publish(const char* name = "test") {
        ASSERT_EQ(OK, defaultServiceManager()->addService(String16(name), mService));
        mRemote = transport::Process::get().services().connect(name);
        ASSERT_NE(nullptr, mRemote);
        ASSERT_NE(nullptr, mRemote->remoteBinder());
    }
    void publishAndServe() {
        publish();
        ProcessState::self()->startThreadPool();
    }

    std::string socketPath(const std::string& name = "test") {
        return phone().runDir() + "/services/" + name;
    }

    // Gives the service an object to keep; what it gave back.
    status_t keep(const sp<IBinder>& object, sp<IBinder>* back, bool* again) {
        Parcel data, reply;
        data.writeStrongBinder(object);
        const status_t status = mRemote->transact(TestService::KEEP, data, &reply);
        *back = reply.readStrongBinder();
        *again = reply.readBool();
        return status;
    }

    int32_t countOfNotes() {
        Parcel data, reply;
        mRemote->transact(TestService::COUNT, data, &reply);
        return reply.readInt32();
    }

    const sp<TestService> mService = sp<TestService>::make();
    sp<IBinder> mRemote;
};

}  // namespace android::binder_test
