#pragma once

#include <binder/IBinder.h>
#include <utils/Mutex.h>
#include <utils/Singleton.h>
#include <utils/String8.h>

namespace android {

// Sends events to the published service from inside its process, or any other, as a client does:
// over a socket and one-way, so that they reach its setEvent() on one of its binder threads.
//
// Threads: any. It never waits for the service.
// Order: events of one thread arrive in the order they were sent.
// Errors: one log line; the event is lost. A restarted service is found again.
class PeltoEventUploadUtils : public Singleton<PeltoEventUploadUtils> {
  public:
    void setEvent(const String8& type, const String8& info) EXCLUDES(mLock);

  private:
    friend class Singleton<PeltoEventUploadUtils>;
    PeltoEventUploadUtils() = default;

    status_t sendLocked(const String8& type, const String8& info) REQUIRES(mLock);

    Mutex mLock;
    sp<IBinder> mService GUARDED_BY(mLock);
};

}  // namespace android
