#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>

#include <cstdint>

namespace android {

class BBinder;
class BpBinder;
class IInterface;
class Parcel;

// An object that can be called across processes: a local one (BBinder) or the proxy of a remote one
// (BpBinder).
//
// Ownership: counted references. A proxy keeps the object behind it alive as long as the connection
//   to its process stands.
// Threads: every operation from any thread.
// Errors: DEAD_OBJECT when the other process is gone, FAILED_TRANSACTION when a call is too big or
//   the other side does not read, TIMED_OUT when ProcessState::setCallTimeout() limits the wait for
//   a reply and none comes, WOULD_BLOCK when the other process takes no more clients, else what the
//   object's onTransact() returned.
class IBinder : public virtual RefBase {
  public:
    enum : uint32_t {
        FIRST_CALL_TRANSACTION = 0x00000001,
        PING_TRANSACTION = 0x5f504e47,       // "_PNG"
        INTERFACE_TRANSACTION = 0x5f4e5446,  // "_NTF"
        // One-way, sent by the library: an int32, how many one-way calls to the object were lost
        // at this place in their order, since its process did not read them.
        LOST_CALLS_TRANSACTION = 0x5f4c5354,  // "_LST"

        // The caller never waits, not even for room to send, and gets no reply or result. One-way
        // calls to one object run one at a time, in the order they were sent.
        FLAG_ONEWAY = 0x00000001,
    };

    // Notified once when the process of a watched object has ended, on a thread of the binder
    // library, with no lock held; may make calls.
    class DeathRecipient : public virtual RefBase {
      public:
        virtual void binderDied(const wp<IBinder>& who) = 0;
    };

    // This object when it implements that interface in this process, else null.
    virtual sp<IInterface> queryLocalInterface(const String16& descriptor);
    virtual const String16& getInterfaceDescriptor() const = 0;

    virtual bool isBinderAlive() const = 0;
    virtual status_t pingBinder() = 0;

    virtual status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                              uint32_t flags = 0) = 0;

    // The caller keeps the recipient, which is held weakly, and the proxy: a proxy that is gone
    // notifies nobody. What a call returns when the object is dead, INVALID_OPERATION on an object
    // of this process.
    virtual status_t linkToDeath(const sp<DeathRecipient>& recipient) = 0;

    virtual BBinder* localBinder();
    virtual BpBinder* remoteBinder();

  protected:
    IBinder() = default;
    ~IBinder() override = default;
};

}  // namespace android
