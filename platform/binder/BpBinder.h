#pragma once

#include <binder/IBinder.h>
#include <utils/Mutex.h>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

namespace android {

namespace transport {
class Connection;
}

// The proxy of another process's object; a connection has at most one for each object.
class BpBinder : public IBinder {
  public:
    BpBinder(std::shared_ptr<transport::Connection> connection, uint32_t handle);

    // The first call asks the object's process and keeps the answer.
    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags = 0) override;
    status_t linkToDeath(const sp<DeathRecipient>& recipient) override;
    BpBinder* remoteBinder() override;

    // The interface proxy kept for `key`, else a new one from `make`: an object received twice has
    // one interface pointer.
    sp<IInterface> interfaceFor(const void* key, const std::function<sp<IInterface>()>& make)
        EXCLUDES(mLock);

    // For the transport.
    const transport::Connection* connection() const { return mConnection.get(); }
    uint32_t handle() const { return mHandle; }
    void reportDeath() EXCLUDES(mLock);

  protected:
    ~BpBinder() override = default;
    void onLastStrongRef(const void* id) override;

  private:
    struct InterfaceProxy {
        const void* key;
        wp<IInterface> proxy;
    };

    const std::shared_ptr<transport::Connection> mConnection;
    const uint32_t mHandle;

    mutable Mutex mLock;
    bool mDeathReported GUARDED_BY(mLock) = false;
    std::vector<wp<DeathRecipient>> mRecipients GUARDED_BY(mLock);
    std::vector<InterfaceProxy> mInterfaces GUARDED_BY(mLock);
    // Written once under the lock; never changed or freed while the proxy lives.
    mutable std::unique_ptr<const String16> mDescriptor GUARDED_BY(mLock);
};

}  // namespace android
