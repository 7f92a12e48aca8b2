#pragma once

#include <utils/Mutex.h>
#include <utils/Thread.h>

#include <condition_variable>

#include "looper/PeltoLooper.h"
#include "looper/thread_annotations.h"

namespace android {

// A thread that runs a looper of its own until quit(). It cannot be started again after that.
//
// Threads: start(), getLooper() and quit() from any thread. mLock is never held while the looper
//   polls or a handler runs, nor while quit() wakes and joins.
// Order: the poll in progress when quit() is called ends normally and delivers the messages due in
//   it; later ones are not delivered.
class HandlerThread : public Thread {
  public:
    HandlerThread();
    ~HandlerThread() override;

    // Starts the thread. On failure returns the status of Thread::run(), and no looper is made.
    status_t start(const char* name, int32_t priority, size_t stack);
    // Waits until the thread has made its looper; null after a spurious wake-up. To be called after
    // a successful start().
    sp<PeltoLooper> getLooper();
    // Ends the loop and waits for the thread; does nothing when it is not running.
    void quit();

  private:
    bool threadLoop() override;
    bool shouldQuit();

    sp<PeltoLooper> mLooper GUARDED_BY(mLock);
    Mutex mLock;
    bool mShouldQuit GUARDED_BY(mLock) = false;
    std::condition_variable_any mCond;
};

}  // namespace android
