#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>

namespace android::transport {

class Connection;

// A call that was read from a connection and waits for a thread.
struct IncomingCall {
    std::shared_ptr<Connection> from;
    sp<BBinder> target;
    uint32_t code = 0;
    uint32_t flags = 0;
    uint64_t id = 0;
    size_t charge = 0;  // bytes that it adds to mBacklog of `from`
    Parcel data;

    bool oneWay() const { return (flags & IBinder::FLAG_ONEWAY) != 0; }
};

// The threads that execute incoming calls. The pool grows up to its maximum while calls wait and no
// thread is free.
//
// Order: calls begin in the order they arrived, but one-way calls to one object run one at a time:
//   the next begins when the one before has returned.
// Threads: every operation from any thread; no lock is held while a call runs.
class CallPool {
  public:
    void setMaxThreads(size_t count) EXCLUDES(mLock);
    void start() EXCLUDES(mLock);
    void post(IncomingCall call) EXCLUDES(mLock);
    // Executes calls on this thread until stop(), then waits until no call is running.
    void join() EXCLUDES(mLock);
    void stop() EXCLUDES(mLock);

  private:
    void work() EXCLUDES(mLock);
    bool take(IncomingCall* call) EXCLUDES(mLock);
    void finished(const IncomingCall& call) EXCLUDES(mLock);
    void readyLocked(IncomingCall call) REQUIRES(mLock);
    void growLocked() REQUIRES(mLock);

    Mutex mLock;
    Condition mWork;
    Condition mQuiet;
    std::deque<IncomingCall> mReady GUARDED_BY(mLock);
    // Objects with a one-way call ready or running, each with the calls queued behind it.
    std::unordered_map<const BBinder*, std::deque<IncomingCall>> mLanes GUARDED_BY(mLock);
    size_t mMaxThreads GUARDED_BY(mLock) = 15;
    size_t mSpawned GUARDED_BY(mLock) = 0;
    size_t mFree GUARDED_BY(mLock) = 0;  // threads that wait for a call or are about to
    size_t mRunning GUARDED_BY(mLock) = 0;
    bool mStarted GUARDED_BY(mLock) = false;
    bool mStopped GUARDED_BY(mLock) = false;
};

}  // namespace android::transport
