// Hosts the service together with a listener of the tests:  listening_host PHONE FD TYPE...
// Writes "ready" to FD when the service is published. Prints a line "TYPE INFO" when an event of
// one of these types is dispatched; for an event "test_written", "written BYTES": the heap in use.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "bench/allocations.h"
#include "event/EventListener.h"
#include "event/PeltoEvent.h"
#include "event/PeltoEventDisptch.h"
#include "host/service_host.h"

namespace {

class WritingListener : public android::EventListener {
  public:
    explicit WritingListener(char** types) {
        mName = "WritingListener";
        mEventTypes.add(kWritten);
        for (; *types != nullptr; ++types) mEventTypes.add(*types);
    }

    void handleEvent(std::string event) override {
        const android::sp<android::PeltoEvent> record = new android::PeltoEvent(event);
        if (record->getEventType() == kWritten) {
            printf("written %zu\n", bench::heapInUse());
        } else {
            printf("%s %s\n", record->getEventType().c_str(), record->getEventInfo().c_str());
        }
    }

  private:
    static constexpr char kWritten[] = "test_written";
};

}  // namespace

int main(int /*argc*/, char** argv) {
    HostOptions options;
    options.phoneFolder = argv[1];
    options.readyFd = atoi(argv[2]);
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    StopSignals signals;
    if (!openPhone(options.phoneFolder)) return kHostNoPhone;
    android::PeltoEventDisptch::getInstance().registerEventListener(new WritingListener(argv + 3));
    const int code = runServiceHost(options, signals);
    fflush(nullptr);
    _exit(code);
}
