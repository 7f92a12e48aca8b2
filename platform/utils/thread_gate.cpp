#include "platform/utils/thread_gate.h"

#include <utils/ThreadControl.h>

namespace android {

namespace {
constexpr int64_t kAwaitNanos = 10'000'000'000;
}  // namespace

ThreadGate& threadGate() {
    static ThreadGate& gate = *new ThreadGate();
    return gate;
}

bool ThreadGate::refuses(const std::string& name) {
    Mutex::Autolock lock(mLock);
    return mRefused.count(name) != 0;
}

void ThreadGate::pass(const std::string& name) {
    Mutex::Autolock lock(mLock);
    if (mClosed.count(name) == 0) return;
    const auto waiting = mWaiting.insert(name);
    mChanged.broadcast();
    while (mClosed.count(name) != 0) mChanged.wait(mLock);
    mWaiting.erase(waiting);
}

void ThreadGate::hold(const std::string& name) {
    Mutex::Autolock lock(mLock);
    mClosed.insert(name);
}

bool ThreadGate::awaitHeld(const std::string& name) {
    Mutex::Autolock lock(mLock);
    while (mWaiting.count(name) == 0) {
        if (mChanged.waitRelative(mLock, kAwaitNanos) == TIMED_OUT) return false;
    }
    return true;
}

void ThreadGate::release(const std::string& name) {
    Mutex::Autolock lock(mLock);
    mClosed.erase(name);
    mChanged.broadcast();
}

void ThreadGate::refuse(const std::string& name) {
    Mutex::Autolock lock(mLock);
    mRefused.insert(name);
}

namespace thread_control {
void hold(const std::string& name) {
    threadGate().hold(name);
}
bool awaitHeld(const std::string& name) {
    return threadGate().awaitHeld(name);
}
void release(const std::string& name) {
    threadGate().release(name);
}
void refuse(const std::string& name) {
    threadGate().refuse(name);
}
}  // namespace thread_control

}  // namespace android
