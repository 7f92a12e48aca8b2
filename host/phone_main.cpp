// The program that hosts the service on a phone. Its init starts it, and again whenever it ends.
#include <android/log.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <ipeltoservice/IPeltoService.h>
#include <unistd.h>

#include "service/PeltoService.h"

using namespace android;

namespace {

constexpr char kTag[] = "peltoserviced";

// Makes the service, publishes it, and executes calls until binder fails. No signal is handled:
// init ends the process by one, and a capture under way is then lost.
void host() {
    const sp<PeltoService> service = new PeltoService();
    // Never released: the threads of the kernel channels hold plain pointers to the service.
    service->incStrong(nullptr);
    const status_t published =
        defaultServiceManager()->addService(String16(kPeltoServiceName), service);
    if (published != OK) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s could not be published, error:%d",
                            kPeltoServiceName, published);
        return;
    }
    ProcessState::self()->startThreadPool();
    IPCThreadState::self()->joinThreadPool();
    __android_log_print(ANDROID_LOG_ERROR, kTag, "%s executes no more calls", kPeltoServiceName);
}

}  // namespace

int main() {
    host();
    // Destroys nothing: the service's threads still run.
    _exit(1);
}
