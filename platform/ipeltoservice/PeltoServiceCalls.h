#pragma once

#include <binder/IBinder.h>
#include <ipeltoservice/IPeltoNativeClient.h>
#include <utils/String8.h>

#include <cstdint>

namespace android {

// The operations of IPeltoService called on its object, each with the status of its transaction,
// which IPeltoService itself drops: OK, DEAD_OBJECT when the service has gone, FAILED_TRANSACTION
// when the texts do not fit into one transaction (together with up to 64 bytes of framing, 1 MiB
// less 8 KiB) or the service does not read, else the status with which the service refused the
// call. `flags` as for IBinder::transact().
//
// The service's object is borrowed: the caller keeps it.
class PeltoServiceCalls {
  public:
    explicit PeltoServiceCalls(IBinder* service) : mService(service) {}

    status_t registerNativeClient(const sp<IPeltoNativeClient>& client, uint32_t flags = 0);
    status_t notifyVideoStutter(const String8& detector, int frameGap, uint32_t flags = 0);
    status_t updateSFStateFlag(bool state, uint32_t flags = 0);
    status_t updateTopActivity(int64_t minIntervalMillis, uint32_t flags = 0);
    status_t setEvent(const String8& type, const String8& info, uint32_t flags = 0);
    status_t setEventToNative(const String8& type, const String8& info, uint32_t flags = 0);
    status_t setDebugLog(bool on, uint32_t flags = 0);

  private:
    IBinder* const mService;
};

}  // namespace android
