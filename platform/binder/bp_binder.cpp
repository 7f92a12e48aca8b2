#include <binder/BpBinder.h>
#include <binder/IInterface.h>
#include <binder/Parcel.h>
#include <binder/transport/connection.h>

#include <algorithm>

namespace android {

BpBinder::BpBinder(std::shared_ptr<transport::Connection> connection, uint32_t handle)
    : mConnection(std::move(connection)), mHandle(handle) {}

void BpBinder::onLastStrongRef(const void* /*id*/) {
    mConnection->forgetProxy(this);
}

BpBinder* BpBinder::remoteBinder() {
    return this;
}

bool BpBinder::isBinderAlive() const {
    return mConnection->alive();
}

status_t BpBinder::pingBinder() {
    Parcel data, reply;
    return transact(PING_TRANSACTION, data, &reply);
}

const String16& BpBinder::getInterfaceDescriptor() const {
    static const String16& none = *new String16();
    {
        Mutex::Autolock lock(mLock);
        if (mDescriptor != nullptr) return *mDescriptor;
    }
    Parcel data, reply;
    if (mConnection->transact(mHandle, INTERFACE_TRANSACTION, data, &reply, 0) != OK) return none;
    String16 descriptor;
    reply.readString16(&descriptor);
    Mutex::Autolock lock(mLock);
    if (mDescriptor == nullptr) mDescriptor.reset(new String16(descriptor));
    return *mDescriptor;
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    return mConnection->transact(mHandle, code, data, reply, flags);
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient) {
    if (recipient == nullptr) return BAD_VALUE;
    {
        Mutex::Autolock lock(mLock);
        if (!mDeathReported && mConnection->alive()) {
            mRecipients.push_back(recipient);
            return OK;
        }
    }
    return mConnection->end();
}

void BpBinder::reportDeath() {
    std::vector<wp<DeathRecipient>> recipients;
    {
        Mutex::Autolock lock(mLock);
        mDeathReported = true;
        recipients.swap(mRecipients);
    }
    for (const wp<DeathRecipient>& linked : recipients) {
        const sp<DeathRecipient> recipient = linked.promote();
        if (recipient != nullptr) recipient->binderDied(wp<IBinder>(this));
    }
}

sp<IInterface> BpBinder::interfaceFor(const void* key,
                                      const std::function<sp<IInterface>()>& make) {
    Mutex::Autolock lock(mLock);
    for (const InterfaceProxy& entry : mInterfaces) {
        if (entry.key != key) continue;
        const sp<IInterface> known = entry.proxy.promote();
        if (known != nullptr) return known;
    }
    const auto gone = [&](const InterfaceProxy& entry) { return entry.key == key; };
    mInterfaces.erase(std::remove_if(mInterfaces.begin(), mInterfaces.end(), gone),
                      mInterfaces.end());
    const sp<IInterface> made = make();
    mInterfaces.push_back(InterfaceProxy{key, made});
    return made;
}

}  // namespace android
