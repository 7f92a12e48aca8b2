#pragma once

#include <sys/types.h>
#include <utils/Condition.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include <cstddef>

namespace android {

enum { PRIORITY_DEFAULT = 0 };

// A thread as an object. run() starts it: readyToRun() once, then threadLoop() again and again
// while that returns true, no exit was requested and someone else holds a strong reference.
//
// Ownership: the thread holds its object strongly from run() to its end, and reports "not running"
//   before it lets go.
// Threads: run(), requestExit(), requestExitAndWait(), join() and isRunning() from any thread;
//   waiting on the thread itself returns WOULD_BLOCK at once.
// Errors: a priority that cannot be set is ignored. Names are cut to 15 characters.
class Thread : virtual public RefBase {
  public:
    explicit Thread(bool canCallJava = true);
    virtual ~Thread();

    // INVALID_OPERATION while running, UNKNOWN_ERROR when no thread could be made. 0 as the stack
    // size is the platform's default.
    virtual status_t run(const char* name, int32_t priority = PRIORITY_DEFAULT, size_t stack = 0);
    virtual void requestExit();
    virtual status_t readyToRun();

    // Both wait for the thread to end and return readyToRun()'s result; the first requests the end.
    status_t requestExitAndWait();
    status_t join();
    bool isRunning() const;
    pid_t getTid() const;

  protected:
    bool exitPending() const;

  private:
    struct Start;

    virtual bool threadLoop() = 0;

    static void* entry(void* start);
    static void loop(sp<Thread> self);
    bool passOnce(bool first);
    bool endUnlessGoingOn(bool goOn);
    status_t waitForEnd(bool exit);

    mutable Mutex mThreadLock;
    Condition mEnded;
    bool mRunning GUARDED_BY(mThreadLock) = false;
    bool mExitPending GUARDED_BY(mThreadLock) = false;
    status_t mStatus GUARDED_BY(mThreadLock) = OK;
    pthread_t mThread GUARDED_BY(mThreadLock) = {};
    pid_t mTid GUARDED_BY(mThreadLock) = -1;
};

}  // namespace android
