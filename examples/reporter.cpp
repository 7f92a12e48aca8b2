// Sends events to the multimedia diagnostics service.
//
//   reporter TYPE [INFORMATION]     one event, such as: reporter my_event key:value,other:value
//   reporter < FILE                 an event a line, each "TYPE INFORMATION" or "TYPE"
//
// Exit codes: 0 sent, 1 not or not all sent, 2 wrong usage; on a desk also 3, there is no phone.
#include <android/log.h>
#include <binder/IServiceManager.h>
#include <ipeltoservice/IPeltoService.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>

using android::String16;
using android::String8;

namespace {

// The type, "$" and the information together: the service's own listeners get no longer event.
constexpr size_t kMaxEventBytes = 1023;

class Reporter {
  public:
    // A process has one proxy of the service, for all its threads.
    Reporter()
        : mBinder(android::defaultServiceManager()->getService(String16("peltoservice"))),
          mService(android::interface_cast<android::IPeltoService>(mBinder)) {}

    // Returns once the service has taken the event; false after one line on stderr. Operations of
    // the interface report no failure: whether the service still lives shows whether it took it.
    bool send(const std::string& type, const std::string& information) const {
        if (mService == nullptr) return refuse(type, "the service is not published");
        if (type.empty() || type.find('$') != type.npos) return refuse(type, "is no event type");
        if (type.size() + 1 + information.size() > kMaxEventBytes)
            return refuse(type, "is too long for an event");
        mService->setEvent(String8(type.c_str()), String8(information.c_str()));
        if (mBinder->pingBinder() != android::OK) return refuse(type, "the service has ended");
        __android_log_print(ANDROID_LOG_DEBUG, "reporter", "sent %s", type.c_str());
        return true;
    }

  private:
    static bool refuse(const std::string& type, const char* why) {
        fprintf(stderr, "reporter: %.60s: %s\n", type.c_str(), why);
        return false;
    }

    const android::sp<android::IBinder> mBinder;
    const android::sp<android::IPeltoService> mService;
};

bool sendLines(const Reporter& reporter) {
    for (std::string line; std::getline(std::cin, line);) {
        const size_t blank = std::min(line.find(' '), line.size());
        const std::string information = blank < line.size() ? line.substr(blank + 1) : "";
        if (!line.empty() && !reporter.send(line.substr(0, blank), information)) return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 3) {
        fputs("usage: reporter [TYPE [INFORMATION]]\n", stderr);
        return 2;
    }
    const Reporter reporter;
    const bool sent =
        argc > 1 ? reporter.send(argv[1], argc > 2 ? argv[2] : "") : sendLines(reporter);
    return sent ? 0 : 1;
}
