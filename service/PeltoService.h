#pragma once

#include <binder/IBinder.h>
#include <ipeltoservice/IPeltoNativeClient.h>
#include <ipeltoservice/IPeltoService.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/SortedVector.h>
#include <utils/String8.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "looper/thread_annotations.h"

namespace android {

class DisplayKevent;
class EventTest;
class KelvoAudioKernelNativeCom;
class KelvoDmesgThread;
class KelvoGpuMinidump;
class KelvoPeltoLogWriter;
struct kernel_to_native_packet;
struct mm_kevent_packet;

// The service object: its constructor brings up the whole system, its operations take the reports
// of other processes.
//
// Ownership: whoever publishes it keeps it. It survives references taken and dropped while it is
//   being constructed, and is destroyed when its last owner lets go afterwards. It keeps every
//   native client for good, dead ones too.
// Threads: constructed on the host's thread before it is published; every operation from any
//   binder thread, several at once. mLock is held while native clients are called: a slow one
//   delays other events and registrations. Nothing else is called under it.
// Order: native clients see an event before any listener of this process does.
// Errors: no operation reports a failure to its caller; a component that cannot start leaves the
//   rest working.
class PeltoService : public BnPeltoService, public IBinder::DeathRecipient {
  public:
    PeltoService();
    ~PeltoService() override;

    // A client is called from now on, once for every event, whatever becomes of its process.
    status_t registerNativeClient(const sp<IPeltoNativeClient>& client) override EXCLUDES(mLock);
    void notifyVideoStutter(const String8& detectorName, int frameGap) override EXCLUDES(mLock);
    // While it is true, the stutter reports of "HwuiDetect" are dropped.
    void updateSFStateFlag(bool state) override;
    // Accepted, and told to clients and listeners, when it is the first or when more than so many
    // milliseconds since boot have passed since the last accepted one.
    void updateTopActivity(int64_t minIntervalMillis) override EXCLUDES(mLock);
    void setEvent(const String8& event, const String8& info) override EXCLUDES(mLock);
    // For the listeners of this process only.
    void setEventToNative(const String8& event, const String8& info) override;
    // For the dispatcher too; every client and listener is told by an event.
    void setDebugLog(bool debugLog) override EXCLUDES(mLock);

    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override;
    void binderDied(const wp<IBinder>& who) override;
    void onFirstRef() override;

    // What the kernel channels call, each on its thread, with the service as owner. False when an
    // argument is null or memory is short.
    static bool handleKernelFeedback(void* owner, mm_kevent_packet* packet);
    static bool handleAudioKernelInfo(void* owner, kernel_to_native_packet* packet);
    // Tells the display compositor, and waits for it.
    static void notifySurfaceFlinger(int32_t eventId, const String8& info);

  protected:
    void onLastStrongRef(const void* id) override;

  private:
    void init() EXCLUDES(mLock);
    bool debugLog() const { return mDebugLog.load(std::memory_order_relaxed); }
    size_t clientCount() EXCLUDES(mLock);
    bool acceptActivityUpdate(int64_t minIntervalMillis) EXCLUDES(mLock);

    SortedVector<sp<IPeltoNativeClient>> mNativeClients GUARDED_BY(mLock);
    Mutex mLock;
    // Racy by design: a stale value only costs or adds a verbose line.
    std::atomic<bool> mDebugLog{false};
    sp<KelvoPeltoLogWriter> mLogWriter;
    sp<EventTest> mEventTest;
    sp<DisplayKevent> mDisplayKevent;
    sp<KelvoAudioKernelNativeCom> mAudioKernelCom;
    sp<KelvoDmesgThread> mDmesgThread;
    std::shared_ptr<KelvoGpuMinidump> mGpuMinidump;  // null where the phone has no such monitor
    std::atomic<bool> mSfState{false};
    int64_t mUpdateActivityTime GUARDED_BY(mLock) = 0;  // milliseconds since boot, 0 is never
    // Start-up holds a weak reference of its own, so that a fall to no strong one does not end the
    // object; once it is over, the next such fall gives it up.
    std::atomic<bool> mHeldForStartUp{false};
};

}  // namespace android
