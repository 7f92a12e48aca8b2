#include <binder/ProcessState.h>
#include <binder/transport/process.h>

namespace android {

using transport::Process;

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

void ProcessState::shutDown() {
    Process::get().services().withdrawAll();
    Process::get().calls().stop();
}

}  // namespace android
