// Both ends of the interface: the calls that a client sends and their unmarshalling in the service.
#include <android/log.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <ipeltoservice/IPeltoService.h>
#include <ipeltoservice/PeltoServiceCalls.h>

namespace android {

namespace {

Parcel begin() {
    Parcel data;
    data.writeInterfaceToken(IPeltoService::descriptor);
    return data;
}

status_t callWithTexts(IBinder* service, uint32_t code, const String8& first, const String8& second,
                       uint32_t flags) {
    Parcel data = begin();
    data.writeString8(first);
    data.writeString8(second);
    return service->transact(code, data, nullptr, flags);
}

}  // namespace

status_t PeltoServiceCalls::registerNativeClient(const sp<IPeltoNativeClient>& client,
                                                 uint32_t flags) {
    Parcel data = begin(), reply;
    data.writeStrongBinder(IInterface::asBinder(client));
    const status_t status =
        mService->transact(IPeltoService::REGISTER_NATIVE_CLIENT, data, &reply, flags);
    // A one-way call has no reply to read.
    return status == OK && reply.dataAvail() > 0 ? reply.readInt32() : status;
}

status_t PeltoServiceCalls::notifyVideoStutter(const String8& detector, int frameGap,
                                               uint32_t flags) {
    Parcel data = begin();
    data.writeString8(detector);
    data.writeInt32(frameGap);
    return mService->transact(IPeltoService::NOTIFY_VIDEO_STUTTER, data, nullptr, flags);
}

status_t PeltoServiceCalls::updateSFStateFlag(bool state, uint32_t flags) {
    Parcel data = begin();
    data.writeBool(state);
    return mService->transact(IPeltoService::UPDATE_SF_STATE_FLAG, data, nullptr, flags);
}

status_t PeltoServiceCalls::updateTopActivity(int64_t minIntervalMillis, uint32_t flags) {
    Parcel data = begin();
    data.writeInt64(minIntervalMillis);
    return mService->transact(IPeltoService::UPDATE_TOP_ACTIVITY, data, nullptr, flags);
}

status_t PeltoServiceCalls::setEvent(const String8& type, const String8& info, uint32_t flags) {
    return callWithTexts(mService, IPeltoService::SET_EVENT, type, info, flags);
}

status_t PeltoServiceCalls::setEventToNative(const String8& type, const String8& info,
                                             uint32_t flags) {
    return callWithTexts(mService, IPeltoService::SET_EVENT_TO_NATIVE, type, info, flags);
}

status_t PeltoServiceCalls::setDebugLog(bool on, uint32_t flags) {
    Parcel data = begin();
    data.writeBool(on);
    return mService->transact(IPeltoService::SET_DEBUG_LOG, data, nullptr, flags);
}

namespace {

// Drops the status of each call: the interface's operations report no failure.
class BpPeltoService : public BpInterface<IPeltoService> {
  public:
    using BpInterface::BpInterface;

    status_t registerNativeClient(const sp<IPeltoNativeClient>& client) override {
        return calls().registerNativeClient(client);
    }
    void notifyVideoStutter(const String8& detector, int frameGap) override {
        calls().notifyVideoStutter(detector, frameGap);
    }
    void updateSFStateFlag(bool state) override { calls().updateSFStateFlag(state); }
    void updateTopActivity(int64_t minIntervalMillis) override {
        calls().updateTopActivity(minIntervalMillis);
    }
    void setEvent(const String8& type, const String8& info) override {
        calls().setEvent(type, info);
    }
    void setEventToNative(const String8& type, const String8& info) override {
        calls().setEventToNative(type, info);
    }
    void setDebugLog(bool on) override { calls().setDebugLog(on); }

  private:
    PeltoServiceCalls calls() const { return PeltoServiceCalls(remote()); }
};

status_t registerClient(IPeltoService& service, const Parcel& data, Parcel* reply) {
    sp<IBinder> client;
    const status_t status = data.readNullableStrongBinder(&client);
    if (status != OK) return status;
    const status_t result =
        service.registerNativeClient(interface_cast<IPeltoNativeClient>(client));
    if (reply != nullptr) reply->writeInt32(result);
    return OK;
}

status_t stutter(IPeltoService& service, const Parcel& data) {
    String8 detector;
    int32_t frameGap = 0;
    status_t status = data.readString8(&detector);
    if (status == OK) status = data.readInt32(&frameGap);
    if (status == OK) service.notifyVideoStutter(detector, frameGap);
    return status;
}

status_t topActivity(IPeltoService& service, const Parcel& data) {
    int64_t minIntervalMillis = 0;
    const status_t status = data.readInt64(&minIntervalMillis);
    if (status == OK) service.updateTopActivity(minIntervalMillis);
    return status;
}

status_t withFlag(IPeltoService& service, const Parcel& data,
                  void (IPeltoService::*operation)(bool)) {
    bool flag = false;
    const status_t status = data.readBool(&flag);
    if (status == OK) (service.*operation)(flag);
    return status;
}

status_t withTexts(IPeltoService& service, const Parcel& data,
                   void (IPeltoService::*operation)(const String8&, const String8&)) {
    String8 type, info;
    status_t status = data.readString8(&type);
    if (status == OK) status = data.readString8(&info);
    if (status == OK) (service.*operation)(type, info);
    return status;
}

status_t unmarshal(IPeltoService& service, uint32_t code, const Parcel& data, Parcel* reply) {
    switch (code) {
        case IPeltoService::REGISTER_NATIVE_CLIENT:
            return registerClient(service, data, reply);
        case IPeltoService::NOTIFY_VIDEO_STUTTER:
            return stutter(service, data);
        case IPeltoService::UPDATE_SF_STATE_FLAG:
            return withFlag(service, data, &IPeltoService::updateSFStateFlag);
        case IPeltoService::UPDATE_TOP_ACTIVITY:
            return topActivity(service, data);
        case IPeltoService::SET_EVENT:
            return withTexts(service, data, &IPeltoService::setEvent);
        case IPeltoService::SET_EVENT_TO_NATIVE:
            return withTexts(service, data, &IPeltoService::setEventToNative);
        default:
            return withFlag(service, data, &IPeltoService::setDebugLog);
    }
}

}  // namespace

IMPLEMENT_META_INTERFACE(PeltoService, "pelto.IPeltoService")

status_t BnPeltoService::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                    uint32_t flags) {
    const status_t status = execute(code, data, reply, flags);
    // Logged, since the caller of a one-way call gets no status.
    if (status != OK && (flags & IBinder::FLAG_ONEWAY) != 0) {
        __android_log_print(ANDROID_LOG_WARN, "Binder",
                            "one-way call %u of process %d was refused with %d", code,
                            static_cast<int>(IPCThreadState::self()->getCallingPid()), status);
    }
    return status;
}

status_t BnPeltoService::execute(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if (code < REGISTER_NATIVE_CLIENT || code > SET_DEBUG_LOG) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    CHECK_INTERFACE(IPeltoService, data, reply);
    return unmarshal(*this, code, data, reply);
}

}  // namespace android
