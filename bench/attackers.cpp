#include "bench/attackers.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <ipeltoservice/IPeltoNativeClient.h>
#include <ipeltoservice/IPeltoService.h>
#include <ipeltoservice/PeltoServiceCalls.h>
#include <signal.h>
#include <unistd.h>

namespace bench {

namespace {

using namespace android;

class SlowClient : public BnPeltoNativeClient {
  public:
    status_t onNativeEvent(const char* /*type*/, const char* /*info*/) override {
        usleep(10000);
        return OK;
    }
};

bool registerSlowClient(PeltoServiceCalls& calls) {
    ProcessState::self()->startThreadPool();
    return calls.registerNativeClient(*new sp<SlowClient>(new SlowClient)) == OK;
}

}  // namespace

int attack(const std::string& kind) {
    const sp<IBinder> service = defaultServiceManager()->checkService(String16(kPeltoServiceName));
    if (service == nullptr) return 1;
    PeltoServiceCalls calls(service.get());
    if (kind == "flood") {
        while (calls.setEvent(String8("attack_event"), String8("key:value,other:1")) == OK) {
        }
        return 1;
    }
    if ((kind != "slow" && kind != "deaf") || !registerSlowClient(calls)) return 1;
    if (kind == "deaf") raise(SIGSTOP);
    while (service->isBinderAlive()) pause();
    return 1;
}

}  // namespace bench
