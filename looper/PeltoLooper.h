#pragma once

#include <sys/epoll.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/Timers.h>
#include <utils/Vector.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>

#include "looper/MessageQueue.h"
#include "looper/PeltoLooperCallback.h"
#include "looper/PeltoLooperRequest.h"
#include "looper/PeltoMessage.h"
#include "looper/PeltoMessageHandler.h"
#include "looper/thread_annotations.h"

namespace android {

// Results of pollOnce() and pollAll(); a result of 0 and above is the identifier of a watch that
// has no callback.
enum : int32_t {
    LOOPER_POLL_WAKE = -1,      // woken before the timeout, nothing delivered
    LOOPER_POLL_CALLBACK = -2,  // at least one handler or callback ran
    LOOPER_POLL_TIMEOUT = -3,
    LOOPER_POLL_ERROR = -4,
};

enum : int32_t {
    LOOPER_PREPARE_ALLOW_NON_CALLBACKS = 1,
};

// One thread's event loop: sleeps in epoll_wait() until a message falls due, a watched descriptor
// becomes ready or another thread wakes it.
//
// Ownership: reference-counted. The thread it is bound to keeps one reference until it ends; a
//   queued message keeps its handler alive, a watch its callback. Watched descriptors stay the
//   caller's and are never closed here.
// Threads: pollOnce() and pollAll() on the looper's own thread only, everything else on any.
//   Handlers and callbacks run on the looper's thread with mLock released, so they may post, watch,
//   remove and poll again freely.
// Order: messages go out by due time, equal times in the order they were sent, and always before
//   the descriptor callbacks of the same poll. A message that a handler posts for now goes out in
//   the same poll; as long as due messages arrive, descriptor callbacks wait.
// Time: due times are nanoseconds of the monotonic clock; timeouts are milliseconds, where a
//   negative value waits without limit and 0 never waits.
// Errors: losing the wake descriptor or the epoll instance ends the process, and so does a handler
//   that throws, at once; an exception from a descriptor callback leaves pollOnce(); any other
//   failure is one log line plus the return value named at the method.
class PeltoLooper : public RefBase {
  public:
    // `allowNonCallbacks`: whether watches without a callback may be added.
    explicit PeltoLooper(bool allowNonCallbacks);

    // Set and return the looper of the calling thread; null is none.
    static void setForThread(const sp<PeltoLooper>& looper);
    static sp<PeltoLooper> getForThread();
    // The calling thread's looper, made and bound if there is none. The options of the first call
    // win; a call with others is logged.
    static sp<PeltoLooper> prepare(int32_t opts);

    bool getAllowNonCallbacks() const { return mAllowNonCallbacks; }

    // Waits for events and handles them. The out pointers may be null; they get the event whose
    // identifier is returned, zeros with any other result.
    int32_t pollOnce(int32_t timeoutMillis, int32_t* outFd, int32_t* outEvents, void** outData);
    // Repeats pollOnce() while it returns LOOPER_POLL_CALLBACK and time is left.
    int32_t pollAll(int32_t timeoutMillis, int32_t* outFd, int32_t* outEvents, void** outData);
    // Ends a poll in progress, or the next one at once. Several wakes before a poll count as one.
    void wake();

    // The message is copied. A null handler is accepted, and skipped when its message is due.
    void sendMessage(const sp<PeltoMessageHandler>& handler, const PeltoMessage& message);
    void sendMessageDelayed(int64_t uptimeDelay, const sp<PeltoMessageHandler>& handler,
                            const PeltoMessage& message);
    void sendMessageAtTime(int64_t uptime, const sp<PeltoMessageHandler>& handler,
                           const PeltoMessage& message);
    // A message that is being delivered is not affected.
    void removeMessages(const sp<PeltoMessageHandler>& handler);
    void removeMessages(const sp<PeltoMessageHandler>& handler, int32_t what);

    // Whether the thread waits for events; false while it runs handlers. A hint: it may have
    // changed by the time the caller looks at it.
    bool isPolling() const { return mPolling.load(std::memory_order_relaxed); }

    // Watches `fd`, or replaces its watch. With a callback `ident` is ignored; without one it must
    // not be negative and the looper must allow it. Returns 1, or -1 with a log line.
    int32_t addFd(int32_t fd, int32_t ident, int32_t events,
                  const sp<PeltoLooperCallback>& callback, void* data);
    int32_t addFd(int32_t fd, int32_t ident, int32_t events, PeltoLooperCallbackFunction callback,
                  void* data);
    // 1 when a watch was removed, 0 when there was none, -1 when it was removed but the kernel did
    // not know it. With a sequence number only the watch that has it is removed; -1 is any.
    int32_t removeFd(int32_t fd);
    int32_t removeFd(int32_t fd, int32_t seq);

  protected:
    ~PeltoLooper() override;

  private:
    static constexpr char kTag[] = "KELVO_Looper";
    static constexpr int kMaxEvents = 16;  // events taken from one epoll_wait()

    static void initTLSKey();
    static void requireTLSKey();
    static void threadDestructor(void* looper);

    void enqueue(int64_t uptime, int64_t latestReading, const sp<PeltoMessageHandler>& handler,
                 const PeltoMessage& message) EXCLUDES(mLock);

    void rebuildEpollLocked() REQUIRES(mLock);
    void scheduleEpollRebuildLocked() REQUIRES(mLock);
    int32_t updateWatchLocked(Request& current, Request& request) REQUIRES(mLock);

    int32_t pollInner(int32_t timeoutMillis) EXCLUDES(mLock);
    int32_t untilNextMessage(int32_t timeoutMillis) const;
    int32_t collectEventsLocked(const epoll_event* items, int count, int error) REQUIRES(mLock);
    void collectEventLocked(const epoll_event& item) REQUIRES(mLock);
    int32_t deliverMessagesLocked(int32_t result) REQUIRES(mLock);
    bool firstIsDueLocked() REQUIRES(mLock);
    void deliverDueLocked() noexcept REQUIRES(mLock);
    int32_t invokeCallbacks(int32_t result) EXCLUDES(mLock);
    bool nextIdentifier(int32_t* outFd, int32_t* outEvents, void** outData, int32_t* ident);
    void awoken();
    void pushResponse(int32_t events, const Request& request);

    const bool mAllowNonCallbacks;
    int32_t mWakeEventFd;
    Mutex mLock;
    MessageQueue mMessageEnvelopes GUARDED_BY(mLock);
    bool mSendingMessage GUARDED_BY(mLock) = false;  // a handler is running
    // Racy by design: a hint to other threads, written outside the lock.
    std::atomic<bool> mPolling{false};
    // Replaced under mLock, by the constructor and the looper's thread only, which may therefore
    // wait on it without the lock.
    int32_t mEpollFd = -1;
    bool mEpollRebuildRequired GUARDED_BY(mLock) = false;
    std::map<int32_t, Request> mRequests GUARDED_BY(mLock);
    int32_t mNextRequestSeq GUARDED_BY(mLock) = 0;
    // The looper's thread alone uses these three.
    Vector<Response> mResponses;
    size_t mResponseIndex = 0;
    int64_t mNextMessageUptime = INT64_MAX;  // the first one's due time; INT64_MAX: none
    // The latest time read by a poll or a post; a message due by then needs no new reading.
    int64_t mLatestReading GUARDED_BY(mLock) = INT64_MIN;
};

}  // namespace android
