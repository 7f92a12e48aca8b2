#include "host/service_host.h"

#include <android/log.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <compositor/compositor.h>
#include <ipeltoservice/IPeltoService.h>
#include <stdio.h>
#include <unistd.h>
#include <utils/ThreadControl.h>

#include <stdexcept>

#include "service/PeltoService.h"
#include "sim/control.h"
#include "sim/generic_netlink.h"
#include "sim/phone.h"
#include "sim/ready.h"
#include "sim/services.h"

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

// All in all `threads` of them, the main thread, which joins later, among them.
void startPool(int threads) {
    if (threads == 1) return;
    ProcessState::self()->setThreadPoolMaxThreadCount(static_cast<size_t>(threads) - 2);
    ProcessState::self()->startThreadPool();
}

// The ends of the phone that are in this process, before the service looks for them.
void preparePhone(const HostOptions& options) {
    if (options.workstationKernel) sim::Phone::get().netlink().useWorkstationKernel();
    if (startCompositor() == nullptr) {
        __android_log_write(ANDROID_LOG_WARN, kTag, "another process has the compositor's name");
    }
}

// The kernel-log thread gives up when it is faster than its own construction. Held meanwhile, it is
// there after every start.
sp<PeltoService> makeService() {
    constexpr char kKernelLogThread[] = "KelvoDmesgThread";
    thread_control::hold(kKernelLogThread);
    const sp<PeltoService> service = new PeltoService();
    thread_control::release(kKernelLogThread);
    // For good: the threads of the kernel channels have it as a plain pointer.
    service->incStrong(nullptr);
    return service;
}

}  // namespace

bool openPhone(const HostOptions& options) {
    try {
        sim::Phone::open(options.phoneFolder);
        return true;
    } catch (const std::runtime_error& failure) {
        fprintf(stderr, "%s: %s; make a phone with: pelto --phone DIR phone start\n",
                program_invocation_short_name, failure.what());
        return false;
    }
}

int runServiceHost(const HostOptions& options, StopSignals& signals) {
    const String16 name(kPeltoServiceName);
    // Before anything starts. Whoever is faster from here on, publishing decides.
    if (defaultServiceManager()->checkService(name) != nullptr) return refuseSecond();

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
