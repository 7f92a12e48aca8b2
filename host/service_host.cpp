#include "host/service_host.h"

#include <android/log.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <ipeltoservice/IPeltoService.h>
#include <stdio.h>
#include <unistd.h>

#include <stdexcept>

#include "service/PeltoService.h"
#include "sim/fd.h"
#include "sim/phone.h"

using namespace android;

namespace {

constexpr char kTag[] = "peltoserviced";

int refuse(HostExit code, const char* why) {
    fprintf(stderr, "peltoserviced: %s: %s\n", kPeltoServiceName, why);
    return code;
}

int refuseSecond() {
    return refuse(kHostAlreadyPublished,
                  "already published on this phone; stop that host first (pelto phone stop)");
}

// All in all `threads` of them, the main thread, which joins later, among them.
void startPool(int threads) {
    if (threads == 1) return;
    ProcessState::self()->setThreadPoolMaxThreadCount(static_cast<size_t>(threads) - 2);
    ProcessState::self()->startThreadPool();
}

void tellReady(int fd) {
    if (fd < 0) return;
    const sim::Fd owned(fd);
    sim::writeAll(fd, "ready\n", 6);
}

}  // namespace

bool openPhone(const HostOptions& options) {
    try {
        sim::Phone::open(options.phoneFolder);
        return true;
    } catch (const std::runtime_error& failure) {
        fprintf(stderr, "peltoserviced: %s; make a phone with: pelto --phone DIR phone start\n",
                failure.what());
        return false;
    }
}

int runServiceHost(const HostOptions& options, StopSignals& signals) {
    const String16 name(kPeltoServiceName);
    // Before anything starts. Whoever is faster from here on, publishing decides.
    if (defaultServiceManager()->checkService(name) != nullptr) return refuseSecond();

    const sp<PeltoService> service = new PeltoService();
    const status_t published = defaultServiceManager()->addService(name, service);
    if (published == ALREADY_EXISTS) return refuseSecond();
    if (published != OK) {
        return refuse(kHostFailed, "could not be published; the phone's log says why");
    }

    startPool(options.threads);
    signals.onFirst([] { ProcessState::self()->shutDown(); });
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "%s published, %d threads", kPeltoServiceName,
                        options.threads);
    tellReady(options.readyFd);
    IPCThreadState::self()->joinThreadPool();
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "stopped");
    return kHostStopped;
}
