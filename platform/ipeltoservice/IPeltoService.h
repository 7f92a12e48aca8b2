#pragma once

#include <binder/IInterface.h>
#include <ipeltoservice/IPeltoNativeClient.h>
#include <utils/String8.h>

#include <cstdint>

namespace android {

// The name under which the host publishes the service.
constexpr const char* kPeltoServiceName = "peltoservice";

// The multimedia diagnostics service as its clients see it. The order of the operations is fixed:
// operation n has the code FIRST_CALL_TRANSACTION + n - 1.
//
// Over a proxy every operation waits until the service has executed it; its failure is lost.
// Threads: any, several at once.
class IPeltoService : public IInterface {
  public:
    DECLARE_META_INTERFACE(PeltoService)

    enum : uint32_t {
        REGISTER_NATIVE_CLIENT = IBinder::FIRST_CALL_TRANSACTION,
        NOTIFY_VIDEO_STUTTER,
        UPDATE_SF_STATE_FLAG,
        UPDATE_TOP_ACTIVITY,
        SET_EVENT,
        SET_EVENT_TO_NATIVE,
        SET_DEBUG_LOG,
    };

    virtual status_t registerNativeClient(const sp<IPeltoNativeClient>& client) = 0;
    virtual void notifyVideoStutter(const String8& detector, int frameGap) = 0;
    virtual void updateSFStateFlag(bool state) = 0;
    virtual void updateTopActivity(int64_t minIntervalMillis) = 0;
    virtual void setEvent(const String8& type, const String8& info) = 0;
    virtual void setEventToNative(const String8& type, const String8& info) = 0;
    virtual void setDebugLog(bool on) = 0;
};

// Unmarshals and calls the operation. PERMISSION_DENIED when the caller names another interface,
// UNKNOWN_TRANSACTION for another code, BAD_VALUE or NOT_ENOUGH_DATA when an argument is malformed
// or missing: then no operation is called. Every call may also come one-way; then a refusal is a
// line in the log.
class BnPeltoService : public BnInterface<IPeltoService> {
  public:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                        uint32_t flags = 0) override;

  private:
    status_t execute(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags);
};

}  // namespace android
