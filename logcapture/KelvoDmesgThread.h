#pragma once

#include <utils/Mutex.h>
#include <utils/Thread.h>

#include <atomic>
#include <condition_variable>
#include <string>

#include "event/EventListener.h"
#include "looper/thread_annotations.h"

namespace android {

// Writes the kernel's ring buffer into one fixed file and clears it, whenever the audio detection
// asks for the log: each dump holds the kernel's lines since the one before.
//
// Ownership: the one instance comes from createLogThread(); the dispatcher and a static pointer
//   keep it until the process ends.
// Threads: handleEvent() and dumpKernelLog() on "pelto_looper", the dumps on the thread
//   "KelvoDmesgThread". No lock is held while a command runs.
// Order: the thread starts during the construction of the instance, before the static pointer and
//   flag are set, and ends at once when it reads them too early. A request is dropped while the
//   worker is busy, not yet asleep or gone; requests are never queued. An exit requested while it
//   sleeps takes effect after the next dump.
// Errors: a failed command has a log line like any other, and the next one runs.
class KelvoDmesgThread : public Thread, public EventListener {
  public:
    // The instance; null in every call after the first.
    static sp<KelvoDmesgThread> createLogThread();
    ~KelvoDmesgThread() override = default;

    status_t readyToRun() override;
    bool threadLoop() override;
    void onFirstRef() override;
    // NO_INIT until createLogThread() has set pointer and flag.
    virtual status_t initCheck() const;
    void handleEvent(std::string event) override;

    void dumpKernelLog() EXCLUDES(mLock);

  private:
    KelvoDmesgThread();
    void registerEventLister();
    // Sleeps until a dump is requested; false when an exit was requested before the sleep.
    bool awaitRequest() EXCLUDES(mLock);
    void runCommands();

    // mInit is set after mLogThread and publishes it to other threads.
    static std::atomic<bool> mInit;
    static sp<KelvoDmesgThread> mLogThread;

    Mutex mLock;
    std::condition_variable_any mCondition;
    bool mSleeping GUARDED_BY(mLock) = false;
    // Set outside the lock by design: a request that races with the end of a dump may be dropped.
    std::atomic<bool> mDumping{false};
};

}  // namespace android
