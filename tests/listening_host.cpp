// A host of the service whose process has a listener of the test's:  listening_host PHONE FD FILE
// Says "ready" on FD when it is up. FILE gets the information of each event "test_event", a line
// each, in the order of their dispatch; "test_written" has them written and says so on stdout.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "event/EventListener.h"
#include "event/PeltoEvent.h"
#include "event/PeltoEventDisptch.h"
#include "host/service_host.h"

namespace {

class WritingListener : public android::EventListener {
  public:
    explicit WritingListener(const char* path) : mFile(fopen(path, "w")) {
        if (mFile == nullptr) _exit(1);
        mName = "WritingListener";
        mEventTypes.add("test_event");
        mEventTypes.add("test_written");
    }

    void handleEvent(std::string event) override {
        const android::sp<android::PeltoEvent> record = new android::PeltoEvent(event);
        if (record->getEventType() == "test_event") {
            fprintf(mFile, "%s\n", record->getEventInfo().c_str());
            return;
        }
        fflush(mFile);
        puts("written");
        fflush(stdout);
    }

  private:
    FILE* const mFile;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) return kHostUsage;
    HostOptions options;
    options.phoneFolder = argv[1];
    options.readyFd = atoi(argv[2]);
    StopSignals signals;
    if (!openPhone(options)) return kHostNoPhone;
    android::PeltoEventDisptch::getInstance().registerEventListener(new WritingListener(argv[3]));
    const int code = runServiceHost(options, signals);
    fflush(nullptr);
    _exit(code);
}
