#include <binder/Binder.h>
#include <binder/BpBinder.h>
#include <binder/IInterface.h>
#include <binder/Parcel.h>

namespace android {

sp<IInterface> IBinder::queryLocalInterface(const String16& /*descriptor*/) {
    return nullptr;
}
BBinder* IBinder::localBinder() {
    return nullptr;
}
BpBinder* IBinder::remoteBinder() {
    return nullptr;
}

sp<IBinder> IInterface::asBinder(const IInterface* interface) {
    if (interface == nullptr) return nullptr;
    return const_cast<IInterface*>(interface)->onAsBinder();
}

sp<IBinder> IInterface::asBinder(const sp<IInterface>& interface) {
    return asBinder(interface.get());
}

sp<IInterface> IInterface::find(const sp<IBinder>& object, const String16& descriptor,
                                sp<IInterface> (*makeProxy)(const sp<IBinder>& remote)) {
    if (object == nullptr) return nullptr;
    const sp<IInterface> local = object->queryLocalInterface(descriptor);
    BpBinder* const proxy = object->remoteBinder();
    if (local != nullptr || proxy == nullptr) return local;
    return proxy->interfaceFor(&descriptor, [&] { return makeProxy(object); });
}

const String16& BBinder::getInterfaceDescriptor() const {
    static const String16& none = *new String16();
    return none;
}

bool BBinder::isBinderAlive() const {
    return true;
}
status_t BBinder::pingBinder() {
    return OK;
}
BBinder* BBinder::localBinder() {
    return this;
}

status_t BBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    data.setDataPosition(0);
    status_t status = OK;
    switch (code) {
        case PING_TRANSACTION:
            break;
        case INTERFACE_TRANSACTION:
            if (reply != nullptr) reply->writeString16(getInterfaceDescriptor());
            break;
        default:
            status = onTransact(code, data, reply, flags);
            break;
    }
    if (reply != nullptr) reply->setDataPosition(0);
    return status;
}

status_t BBinder::onTransact(uint32_t /*code*/, const Parcel& /*data*/, Parcel* /*reply*/,
                             uint32_t /*flags*/) {
    return UNKNOWN_TRANSACTION;
}

status_t BBinder::linkToDeath(const sp<DeathRecipient>& /*recipient*/) {
    return INVALID_OPERATION;
}

}  // namespace android
