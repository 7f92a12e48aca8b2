#include <binder/IPCThreadState.h>
#include <binder/transport/process.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace android {

namespace {

// The workstation's own time: waiting for a socket does not follow a held clock of the phone.
int64_t steadyNanos() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

IPCThreadState::IPCThreadState() : mPid(getpid()), mUid(getuid()) {}

IPCThreadState* IPCThreadState::self() {
    static thread_local IPCThreadState state;
    return &state;
}

void IPCThreadState::joinThreadPool(bool /*isMain*/) {
    constexpr int64_t kLongestFlush = 1000000000;  // ns for every connection together
    transport::Process& process = transport::Process::get();
    process.calls().join();
    const int64_t end = steadyNanos() + kLongestFlush;
    for (const auto& source : process.io().sources()) {
        source->drain(std::max<int64_t>(end - steadyNanos(), 0));
    }
}

IPCThreadState::Caller::Caller(pid_t pid, uid_t uid) : mPid(self()->mPid), mUid(self()->mUid) {
    self()->mPid = pid;
    self()->mUid = uid;
}

IPCThreadState::Caller::~Caller() {
    self()->mPid = mPid;
    self()->mUid = mUid;
}

}  // namespace android
