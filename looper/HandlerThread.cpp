#include "looper/HandlerThread.h"

namespace android {

HandlerThread::HandlerThread() : Thread(true) {}

HandlerThread::~HandlerThread() {
    quit();
}

status_t HandlerThread::start(const char* name, int32_t priority, size_t stack) {
    return run(name, priority, stack);
}

bool HandlerThread::threadLoop() {
    sp<PeltoLooper> looper;
    {
        Mutex::Autolock lock(mLock);
        mLooper = PeltoLooper::prepare(0);
        looper = mLooper;
        mCond.notify_all();
    }
    while (!shouldQuit()) looper->pollOnce(-1, nullptr, nullptr, nullptr);
    return false;
}

bool HandlerThread::shouldQuit() {
    Mutex::Autolock lock(mLock);
    return mShouldQuit;
}

sp<PeltoLooper> HandlerThread::getLooper() {
    Mutex::Autolock lock(mLock);
    // A single wait on purpose: after a spurious wake-up the result is null.
    if (mLooper == nullptr) mCond.wait(mLock);
    return mLooper;
}

void HandlerThread::quit() {
    if (!isRunning()) return;
    sp<PeltoLooper> looper = getLooper();
    {
        Mutex::Autolock lock(mLock);
        mShouldQuit = true;
    }
    if (looper != nullptr) looper->wake();
    requestExitAndWait();
}

}  // namespace android
