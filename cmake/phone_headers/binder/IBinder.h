#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>

#include <cstdint>

namespace android {

class Parcel;

class IBinder : public virtual RefBase {
  public:
    class DeathRecipient : public virtual RefBase {
      public:
        virtual void binderDied(const wp<IBinder>& who) = 0;
    };
    virtual status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                              uint32_t flags = 0) = 0;
};

class BBinder : public IBinder {
  public:
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0) final;

  protected:
    ~BBinder() override;
    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                uint32_t flags = 0);
};

class IInterface : public virtual RefBase {};

template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {};

}  // namespace android
