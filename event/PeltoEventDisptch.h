#pragma once

#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/Singleton.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include <atomic>
#include <string>

#include "event/EventListener.h"
#include "looper/HandlerThread.h"
#include "looper/PeltoLooper.h"
#include "looper/PeltoMessageHandler.h"
#include "looper/thread_annotations.h"

namespace android {

// Delivers each event to the listeners of this process: setEvent() only queues it, and the handler
// thread "pelto_looper" calls every listener registered for its type. The misspelt class name is
// part of the interface.
//
// Ownership: the one instance, made by the first getInstance(), lives as long as the process: it is
//   the handler of its own messages and holds itself. It keeps every listener for ever.
// Threads: setEvent() from any thread, without a lock of its own; handleMessage() and
//   dispatchEvent() on the handler thread, where mLock is held across every listener call.
// Order: events are delivered one at a time in the order they were queued, each to its listeners in
//   the order they registered.
// Errors: without a handler thread every event is dropped. A joined text of 1024 bytes or more is
//   delivered as an empty one, which reaches no listener.
class PeltoEventDisptch : public PeltoMessageHandler, public Singleton<PeltoEventDisptch> {
  public:
    ~PeltoEventDisptch() override = default;

    void registerEventListener(const sp<EventListener>& listener) EXCLUDES(mLock);
    // Listeners are never removed: takes and releases the lock, nothing else.
    void unRegisterEventListener(void (*listener)(std::string)) EXCLUDES(mLock);
    void setEvent(String8 event, String8 info);
    void handleMessage(const PeltoMessage& message) override EXCLUDES(mLock);
    void dispatchEvent(std::string event) EXCLUDES(mLock);
    void setDebugLog(bool debugLog);

  private:
    friend class Singleton<PeltoEventDisptch>;
    PeltoEventDisptch();

    void offerLocked(EventListener& listener, const std::string& type, const std::string& event)
        REQUIRES(mLock);
    void callLocked(EventListener& listener, const std::string& type, const std::string& event)
        REQUIRES(mLock);
    bool debugLog() const { return mDebugLog.load(std::memory_order_relaxed); }

    Vector<sp<EventListener>> mEventListeners GUARDED_BY(mLock);
    sp<HandlerThread> mHandlerThread;
    sp<PeltoLooper> mLooper;  // null when the thread could not be started
    Mutex mLock;
    // Racy by design: a stale value only drops or adds a verbose line.
    std::atomic<bool> mDebugLog{false};
    sp<PeltoMessageHandler> mHandler;  // this object
};

}  // namespace android
