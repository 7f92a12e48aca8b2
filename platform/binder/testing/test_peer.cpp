// The second process of the binder tests. Arguments: FOLDER NAME. Publishes a TestService under
// NAME on the phone in FOLDER and prints "up", then waits to be killed.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <sim/phone.h>
#include <stdio.h>
#include <unistd.h>

#include "platform/binder/testing/test_service.h"

using namespace android;

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    sim::Phone::open(argv[1]);
    ProcessState::self()->startThreadPool();
    const auto service = sp<binder_test::TestService>::make();
    puts(defaultServiceManager()->addService(String16(argv[2]), service) == OK ? "up" : "failed");
    fflush(stdout);
    pause();
}
