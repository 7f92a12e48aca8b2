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

// An object of another process. The same object is the same proxy as long as one lives.
class BpBinder : public IBinder {
  public:
    BpBinder(std::shared_ptr<transport::Connection> connection, uint32_t handle);

    // Asks the object the first time.
    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags = 0) override;
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* removed = nullptr) override;
    BpBinder* remoteBinder() override;

    // The interface proxy made over this object for `key`, the same one while it lives, so that an
    // object given twice is known as the same by those who compare interface pointers.
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
    struct Link {
        wp<DeathRecipient> recipient;
        void* cookie;
        uint32_t flags;
    };
    struct InterfaceProxy {
        const void* key;
        wp<IInterface> proxy;
    };

    const std::shared_ptr<transport::Connection> mConnection;
    const uint32_t mHandle;

    mutable Mutex mLock;
    bool mDeathReported GUARDED_BY(mLock) = false;
    std::vector<Link> mLinks GUARDED_BY(mLock);
    std::vector<InterfaceProxy> mInterfaces GUARDED_BY(mLock);
    // Written once under the lock; never changed or freed while the proxy lives.
    mutable std::unique_ptr<const String16> mDescriptor GUARDED_BY(mLock);
};

}  // namespace android
