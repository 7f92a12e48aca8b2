// A process for tests of binder between processes. Arguments: FOLDER ROLE NAME. It opens the phone
// in FOLDER and then
//   serve   publishes a TestService under NAME and says "up"
//   give    finds NAME, gives it a TestService of its own to keep and says "given"
// and obeys the lines it is told:
//   notes N waits for N notes, says "ordered" when they are 0, 1, 2, ... and "disordered" otherwise
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <sim/phone.h>
#include <unistd.h>

#include <iostream>
#include <string>

#include "platform/binder/testing/test_service.h"

using namespace android;
using android::binder_test::TestService;

namespace {

void say(const std::string& line) {
    std::cout << line << std::endl;
}

bool begin(const std::string& role, const String16& name, const sp<TestService>& service) {
    if (role == "serve") {
        if (defaultServiceManager()->addService(name, service) != OK) return false;
        say("up");
        return true;
    }
    const sp<IBinder> found = defaultServiceManager()->getService(name);
    Parcel data, reply;
    data.writeStrongBinder(service);
    if (found == nullptr || found->transact(TestService::KEEP, data, &reply) != OK) return false;
    say("given");
    return true;
}

bool inOrder(const std::vector<int32_t>& notes) {
    for (size_t i = 0; i < notes.size(); ++i) {
        if (notes[i] != static_cast<int32_t>(i)) return false;
    }
    return true;
}

void obey(const std::string& line, TestService& service) {
    if (line.rfind("notes ", 0) != 0) return;
    const bool all = service.waitForNotes(std::stoul(line.substr(6)));
    say(all && inOrder(service.notes()) ? "ordered" : "disordered");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    sim::Phone::open(argv[1]);
    const sp<TestService> service = sp<TestService>::make();
    ProcessState::self()->startThreadPool();
    if (!begin(argv[2], String16(argv[3]), service)) _exit(1);
    for (std::string line; std::getline(std::cin, line);) obey(line, *service);
    _exit(0);
}
