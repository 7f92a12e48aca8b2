// Implements ProcessState and IPCThreadState.
#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <binder/transport/binder_process.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace android {

using transport::Process;

namespace {

// The workstation's own time: waiting for a socket ignores the phone's clock, which may be held.
int64_t steadyNanos() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

sp<ProcessState> ProcessState::self() {
    static const sp<ProcessState>& state = *new sp<ProcessState>(new ProcessState());
    return state;
}

status_t ProcessState::setThreadPoolMaxThreadCount(size_t maxThreads) {
    Process::get().calls().setMaxThreads(maxThreads);
    return OK;
}

void ProcessState::startThreadPool() {
    Process::get().calls().start();
}

void ProcessState::setCallTimeout(int64_t nanos) {
    Process::get().callTimeoutNanos() = nanos;
}

void ProcessState::shutDown() {
    Process::get().services().withdrawAll();
    Process::get().calls().stop();
}

IPCThreadState::IPCThreadState() : mPid(getpid()) {}

IPCThreadState* IPCThreadState::self() {
    static thread_local IPCThreadState state;
    return &state;
}

void IPCThreadState::joinThreadPool(bool /*isMain*/) {
    constexpr int64_t kMaxFlushNanos = 1000000000;  // for all connections together
    Process& process = Process::get();
    process.calls().join();
    const int64_t end = steadyNanos() + kMaxFlushNanos;
    for (const auto& source : process.io().sources()) {
        source->drain(std::max<int64_t>(end - steadyNanos(), 0));
    }
}

IPCThreadState::Caller::Caller(pid_t pid) : mPrevious(self()->mPid) {
    self()->mPid = pid;
}

IPCThreadState::Caller::~Caller() {
    self()->mPid = mPrevious;
}

}  // namespace android
