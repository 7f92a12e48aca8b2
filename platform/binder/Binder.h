#pragma once

#include <binder/IBinder.h>

namespace android {

// An object of this process that other processes may call.
//
// Threads: onTransact() runs on the threads of the pool, several at once, and on the caller's own
//   thread when the call comes from this process. IPCThreadState names the caller.
class BBinder : public IBinder {
  public:
    BBinder() = default;

    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0) final;
    status_t linkToDeath(const sp<DeathRecipient>& recipient) override;
    BBinder* localBinder() override;

  protected:
    ~BBinder() override = default;

    // Executes a call; `reply` may be null. UNKNOWN_TRANSACTION for an unknown code.
    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                uint32_t flags = 0);
};

// Base of the proxies that stand for an interface: holds the object they call.
class BpRefBase : public virtual RefBase {
  protected:
    explicit BpRefBase(const sp<IBinder>& remote) : mRemote(remote) {}
    ~BpRefBase() override = default;

    IBinder* remote() const { return mRemote.get(); }

  private:
    const sp<IBinder> mRemote;
};

}  // namespace android
