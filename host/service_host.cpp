#include "host/service_host.h"

#include <android/log.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <compositor/compositor.h>
#include <ipeltoservice/IPeltoService.h>
#include <stdio.h>
#include <unistd.h>
#include <utils/ThreadStartControl.h>

#include <thread>

#include "host/folder_watch.h"
#include "service/PeltoService.h"
#include "sim/base/fd.h"
#include "sim/control/server.h"
#include "sim/kernel/generic_netlink.h"
#include "sim/phone.h"
#include "sim/userspace/properties.h"
#include "sim/userspace/reports.h"
#include "sim/userspace/services.h"

using namespace android;

namespace {

constexpr char kTag[] = "peltoserviced";

int refuse(HostExit code, const char* why) {
    fprintf(stderr, "peltoserviced: %s: %s\n", kPeltoServiceName, why);
    return code;
}

int refuseSecond() {
    return refuse(kHostAlreadyPublished,
                  "already published on this phone; stop that host first (pelto phone stop, or end "
                  "the process that pelto phone status names)");
}

// Starts the threads that execute calls. The main thread, which joins later, is one of `threads`.
void startPool(int threads) {
    if (threads == 1) return;
    ProcessState::self()->setThreadPoolMaxThreadCount(static_cast<size_t>(threads) - 2);
    ProcessState::self()->startThreadPool();
}

// Clears what a killed service has left, and sets up the parts of the phone that live in this
// process, before the service uses them: the kernel's sockets and the display compositor.
void preparePhone(const HostOptions& options) {
    sim::Phone& phone = sim::Phone::get();
    phone.properties().clearLeftovers();
    phone.reports().clearLeftovers();
    if (options.workstationKernel) phone.netlink().useWorkstationKernel();
    if (startCompositor() == nullptr) {
        __android_log_write(ANDROID_LOG_WARN, kTag, "another process has the compositor's name");
    }
}

// Holds the kernel-log thread until the service is constructed: it ends at once if it runs before
// its own constructor has finished.
sp<PeltoService> makeService() {
    constexpr char kKernelLogThread[] = "KelvoDmesgThread";
    thread_control::hold(kKernelLogThread);
    const sp<PeltoService> service = new PeltoService();
    thread_control::release(kKernelLogThread);
    // Never released: the threads of the kernel channels hold plain pointers to the service.
    service->incStrong(nullptr);
    return service;
}

}  // namespace

StopSignals::StopSignals() {
    sigemptyset(&mSignals);
    sigaddset(&mSignals, SIGTERM);
    sigaddset(&mSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &mSignals, nullptr);
}

void StopSignals::onFirst(std::function<void()> stop) {
    std::thread([signals = mSignals, stop = std::move(stop)] {
        int number = 0;
        sigwait(&signals, &number);
        stop();
        sigwait(&signals, &number);
        _exit(1);
    }).detach();
}

int runServiceHost(const HostOptions& options, StopSignals& signals) {
    const String16 name(kPeltoServiceName);
    // Refuses a second host before anything starts; if two get past this at once, addService()
    // decides.
    if (defaultServiceManager()->checkService(name) != nullptr) return refuseSecond();

    endWithFolderOf(sim::Phone::get());
    preparePhone(options);
    const sp<PeltoService> service = makeService();
    const status_t published = defaultServiceManager()->addService(name, service);
    if (published == ALREADY_EXISTS) return refuseSecond();
    if (published != OK) {
        return refuse(kHostFailed, "could not be published; the phone's log says why");
    }

    sim::Phone::get().control().serve();
    startPool(options.threads);
    signals.onFirst([] { ProcessState::self()->shutDown(); });
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "%s published, %d threads", kPeltoServiceName,
                        options.threads);
    sim::tellReady(options.readyFd);
    IPCThreadState::self()->joinThreadPool();
    sim::Phone::get().services().awaitStopped();
    sim::Phone::get().control().withdraw();
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "stopped");
    return kHostStopped;
}
