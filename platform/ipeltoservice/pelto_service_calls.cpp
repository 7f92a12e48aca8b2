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

status_t call(IBinder* service, uint32_t code, const Parcel& data, uint32_t flags,
              Parcel* reply = nullptr) {
    return service->transact(code, data, reply, flags);
}

status_t callWithTexts(IBinder* service, uint32_t code, const String8& first, const String8& second,
                       uint32_t flags) {
    Parcel data = begin();
    data.writeString8(first);
    data.writeString8(second);
    return call(service, code, data, flags);
}

}  // namespace

status_t PeltoServiceCalls::registerNativeClient(const sp<IPeltoNativeClient>& client,
                                                 uint32_t flags) {
    Parcel data = begin(), reply;
    data.writeStrongBinder(IInterface::asBinder(client));
    const status_t status =
        call(mService, IPeltoService::REGISTER_NATIVE_CLIENT, data, flags, &reply);
    // A one-way call has no reply to read.
    return status == OK && reply.dataAvail() > 0 ? reply.readInt32() : status;
}

status_t PeltoServiceCalls::notifyVideoStutter(const String8& detector, int frameGap,
                                               uint32_t flags) {
    Parcel data = begin();
    data.writeString8(detector);
    data.writeInt32(frameGap);
    return call(mService, IPeltoService::NOTIFY_VIDEO_STUTTER, data, flags);
}

status_t PeltoServiceCalls::updateSFStateFlag(bool state, uint32_t flags) {
    Parcel data = begin();
    data.writeBool(state);
    return call(mService, IPeltoService::UPDATE_SF_STATE_FLAG, data, flags);
}

status_t PeltoServiceCalls::updateTopActivity(int64_t minIntervalMillis, uint32_t flags) {
    Parcel data = begin();
    data.writeInt64(minIntervalMillis);
    return call(mService, IPeltoService::UPDATE_TOP_ACTIVITY, data, flags);
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
    return call(mService, IPeltoService::SET_DEBUG_LOG, data, flags);
}

}  // namespace android
