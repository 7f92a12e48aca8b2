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
    Mutex::Autolock lock(mLock);
    if (mDescriptor == nullptr) mDescriptor.reset(new String16(reply.readString16()));
    return *mDescriptor;
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    return mConnection->transact(mHandle, code, data, reply, flags);
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
    if (recipient == nullptr) return BAD_VALUE;
    Mutex::Autolock lock(mLock);
    if (mDeathReported || !mConnection->alive()) return DEAD_OBJECT;
    mLinks.push_back(Link{recipient, cookie, flags});
    return OK;
}

status_t BpBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                                 wp<DeathRecipient>* removed) {
    Mutex::Autolock lock(mLock);
    if (mDeathReported) return DEAD_OBJECT;
    const auto link = std::find_if(mLinks.begin(), mLinks.end(), [&](const Link& other) {
        const bool named = recipient.unsafe_get() != nullptr;
        return (named ? other.recipient == recipient : other.cookie == cookie) &&
               other.flags == flags;
    });
    if (link == mLinks.end()) return NAME_NOT_FOUND;
    if (removed != nullptr) *removed = link->recipient;
    mLinks.erase(link);
    return OK;
}

void BpBinder::reportDeath() {
    std::vector<Link> links;
    {
        Mutex::Autolock lock(mLock);
        mDeathReported = true;
        links.swap(mLinks);
    }
    for (const Link& link : links) {
        const sp<DeathRecipient> recipient = link.recipient.promote();
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
