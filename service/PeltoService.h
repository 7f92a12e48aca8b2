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
// Ownership: its publisher keeps it. It survives references taken and dropped during its
//   construction, and is destroyed when the last one goes afterwards. It keeps every native client,
//   dead ones too, for ever.
// Threads: constructed on the host's thread before it is published; every operation from any
//   binder thread, several at once. mLock is held while native clients are called: a slow one
//   delays other events and registrations. Nothing else is called under it.
// Order: native clients see an event before any listener of this process does.
// Errors: no operation reports a failure to its caller; a component that cannot start leaves the
//   rest working.
class PeltoService : public BnPeltoService, public IBinder::DeathRecipient {
  public:
    static constexpr char kServiceTag[] = "PeltoService";  // the tag of its log lines

    PeltoService();
    ~PeltoService() override;

    // The client is called once for every event from now on, even after its process has died.
    status_t registerNativeClient(const sp<IPeltoNativeClient>& client) override EXCLUDES(mLock);
    void notifyVideoStutter(const String8& detectorName, int frameGap) override EXCLUDES(mLock);
    // While true, stutter reports of the detector "HwuiDetect" are dropped.
    void updateSFStateFlag(bool state) override;
    // Accepts the first update, and any that comes more than `minIntervalMillis` after the last
    // accepted one; sends clients and listeners an event for it.
    void updateTopActivity(int64_t minIntervalMillis) override EXCLUDES(mLock);
    void setEvent(const String8& event, const String8& info) override EXCLUDES(mLock);
    // Delivers to the listeners of this process only.
    void setEventToNative(const String8& event, const String8& info) override;
    // Switches the dispatcher's verbose lines too, and sends clients and listeners an event.
    void setDebugLog(bool debugLog) override EXCLUDES(mLock);

    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override;
    void binderDied(const wp<IBinder>& who) override;
    void onFirstRef() override;

    // The hooks of the kernel channels, each called on its channel's thread with the service as
    // owner. False when an argument is null or memory is short.
    static bool handleKernelFeedback(void* owner, mm_kevent_packet* packet);
    static bool handleAudioKernelInfo(void* owner, kernel_to_native_packet* packet);
    // Notifies the display compositor and waits for its answer.
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
    // Racy by design: a stale value only drops or adds a verbose line.
    std::atomic<bool> mDebugLog{false};
    sp<KelvoPeltoLogWriter> mLogWriter;
    sp<EventTest> mEventTest;
    sp<DisplayKevent> mDisplayKevent;
    sp<KelvoAudioKernelNativeCom> mAudioKernelCom;
    sp<KelvoDmesgThread> mDmesgThread;
    std::shared_ptr<KelvoGpuMinidump> mGpuMinidump;  // null where the phone has no such monitor
    std::atomic<bool> mSfState{false};
    int64_t mUpdateActivityTime GUARDED_BY(mLock) = 0;  // milliseconds since boot, 0 is never
    // Start-up holds a weak reference, so that losing the last strong one does not destroy the
    // object. The next such loss after start-up releases it.
    std::atomic<bool> mHeldForStartUp{false};
};

}  // namespace android
