// The second process of the binder tests. Arguments: FOLDER ROLE NAME. On the phone in
// FOLDER it
//   serve   publishes a TestService under NAME
//   give    finds NAME and gives it a TestService of its own to keep
// and prints "up", then waits to be killed.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <sim/phone.h>
#include <stdio.h>
#include <unistd.h>

#include "platform/binder/testing/test_service.h"

using namespace android;
using android::binder_test::TestService;

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    sim::Phone::open(argv[1]);
    const String16 name(argv[3]);
    Parcel data, reply;
    const sp<TestService> service = sp<TestService>::make();
    data.writeStrongBinder(service);
    ProcessState::self()->startThreadPool();
    const status_t status =
        argv[2] == std::string("serve")
            ? defaultServiceManager()->addService(name, service)
            : defaultServiceManager()->getService(name)->transact(TestService::KEEP, data, &reply);
    puts(status == OK ? "up" : "failed");
    fflush(stdout);
    pause();
}
