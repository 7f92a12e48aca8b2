#include <binder/Parcel.h>
#include <ipeltoservice/IPeltoNativeClient.h>

namespace android {

namespace {

class BpPeltoNativeClient : public BpInterface<IPeltoNativeClient> {
  public:
    using BpInterface::BpInterface;

    status_t onNativeEvent(const char* type, const char* info) override {
        // The service calls with its lock held: dead clients are skipped before a parcel is made.
        if (!remote()->isBinderAlive()) return DEAD_OBJECT;
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeCString(type);
        data.writeCString(info);
        return remote()->transact(ON_NATIVE_EVENT, data, nullptr, IBinder::FLAG_ONEWAY);
    }
};

}  // namespace

// Not longer than the service's descriptor: an event that fits into a call to the service fits into
// the calls to its clients.
IMPLEMENT_META_INTERFACE(PeltoNativeClient, "pelto.INativeClient")

status_t BnPeltoNativeClient::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                         uint32_t flags) {
    if (code != ON_NATIVE_EVENT) return BBinder::onTransact(code, data, reply, flags);
    CHECK_INTERFACE(IPeltoNativeClient, data, reply);
    const char* const type = data.readCString();
    const char* const info = data.readCString();
    if (type == nullptr || info == nullptr) return BAD_VALUE;
    return onNativeEvent(type, info);
}

}  // namespace android
