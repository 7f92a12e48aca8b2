#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>
#include <utils/Thread.h>
#include <utils/ThreadStartControl.h>

#include <memory>
#include <string>

namespace android {

// The arguments of a new thread; holds the object until the thread does.
struct Thread::Start {
    sp<Thread> thread;
    std::string name;
    int32_t priority;
};

namespace {

// Makes a detached thread; 0 on success.
int makeThread(pthread_t* thread, size_t stack, void* (*entry)(void*), void* argument) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (stack != 0) pthread_attr_setstacksize(&attributes, stack);
    const int result = pthread_create(thread, &attributes, entry, argument);
    pthread_attr_destroy(&attributes);
    return result;
}

}  // namespace

Thread::Thread(bool /*canCallJava*/) {}
Thread::~Thread() = default;

status_t Thread::readyToRun() {
    return OK;
}

status_t Thread::run(const char* name, int32_t priority, size_t stack) {
    Mutex::Autolock lock(mThreadLock);
    if (mRunning) return INVALID_OPERATION;
    mStatus = OK;
    mExitPending = false;
    auto start = std::unique_ptr<Start>(new Start{this, name != nullptr ? name : "", priority});
    if (thread_control::refused(start->name) ||
        makeThread(&mThread, stack, &Thread::entry, start.get()) != 0) {
        mStatus = UNKNOWN_ERROR;
        return UNKNOWN_ERROR;
    }
    start.release();
    mRunning = true;
    return OK;
}

void* Thread::entry(void* argument) {
    std::unique_ptr<Start> start(static_cast<Start*>(argument));
    prctl(PR_SET_NAME, start->name.c_str());  // the kernel keeps 15 characters
    if (start->priority != PRIORITY_DEFAULT) {
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), start->priority);
    }
    thread_control::waitWhileHeld(start->name);
    sp<Thread> self = std::move(start->thread);
    start.reset();
    loop(std::move(self));
    return nullptr;
}

void Thread::loop(sp<Thread> self) {
    bool first = true;
    bool goOn = true;
    do {
        goOn = self->passOnce(first);
        first = false;
    } while (!self->endUnlessGoingOn(goOn));
}

// The first pass also runs readyToRun(), whose error ends the thread.
bool Thread::passOnce(bool first) {
    if (!first) return threadLoop();
    {
        Mutex::Autolock lock(mThreadLock);
        mTid = gettid();
    }
    const status_t status = readyToRun();
    bool exit;
    {
        Mutex::Autolock lock(mThreadLock);
        mStatus = status;
        exit = mExitPending;
    }
    if (status != OK) return false;
    return exit || threadLoop();
}

bool Thread::endUnlessGoingOn(bool goOn) {
    Mutex::Autolock lock(mThreadLock);
    // The thread decides to end while it still holds its own reference: an owner that released the
    // last one would wait in the destructor for an end that is never signalled.
    if (goOn && !mExitPending && getStrongCount() > 1) return false;
    mExitPending = true;
    mRunning = false;
    mTid = -1;
    mEnded.broadcast();
    return true;
}

void Thread::requestExit() {
    Mutex::Autolock lock(mThreadLock);
    mExitPending = true;
}

status_t Thread::waitForEnd(bool exit) {
    Mutex::Autolock lock(mThreadLock);
    if (mRunning && pthread_equal(mThread, pthread_self())) return WOULD_BLOCK;
    if (exit) mExitPending = true;
    while (mRunning) mEnded.wait(mThreadLock);
    if (exit) mExitPending = false;
    return mStatus;
}

status_t Thread::requestExitAndWait() {
    return waitForEnd(true);
}
status_t Thread::join() {
    return waitForEnd(false);
}

bool Thread::isRunning() const {
    Mutex::Autolock lock(mThreadLock);
    return mRunning;
}

pid_t Thread::getTid() const {
    Mutex::Autolock lock(mThreadLock);
    return mTid;
}

bool Thread::exitPending() const {
    Mutex::Autolock lock(mThreadLock);
    return mExitPending;
}

}  // namespace android
