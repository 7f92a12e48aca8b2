#pragma once

#include <binder/IBinder.h>
#include <ipeltoservice/IPeltoNativeClient.h>
#include <utils/String8.h>

namespace android {

class IPeltoService : public IInterface {
  public:
    virtual status_t registerNativeClient(const sp<IPeltoNativeClient>& client) = 0;
    virtual void notifyVideoStutter(const String8& detector, int frameGap) = 0;
    virtual void updateSFStateFlag(bool state) = 0;
    virtual void updateTopActivity(int64_t minIntervalMillis) = 0;
    virtual void setEvent(const String8& type, const String8& info) = 0;
    virtual void setEventToNative(const String8& type, const String8& info) = 0;
    virtual void setDebugLog(bool on) = 0;
};

class BnPeltoService : public BnInterface<IPeltoService> {
  public:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                        uint32_t flags = 0) override;
};

}  // namespace android
