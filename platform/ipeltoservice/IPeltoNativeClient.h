#pragma once

#include <binder/IInterface.h>

namespace android {

// The callback that a process gives to IPeltoService::registerNativeClient() to receive every
// event.
//
// The call is one-way: the service does not wait for it and learns nothing of its result. Events
//   come in the order the service sent them, one at a time, on a thread of the client's binder
//   pool, which it has to start: without one nothing arrives. A client that does not keep up loses
//   events; IBinder::LOST_CALLS_TRANSACTION gives their number where they are missing.
// Registration is permanent: a dead client costs the service about 1.6 KiB (64-bit) and each event
//   the test of a flag. One connection, which is one process, may have 1024 clients registered at a
//   time, and one process 4096 ever: the call for one more fails with FAILED_TRANSACTION and leaves
//   the others as they are.
// A client in the service's own process is called directly, with the service's lock held: it must
//   not call back into the service from onNativeEvent(), or the two wait for each other for ever.
class IPeltoNativeClient : public IInterface {
  public:
    DECLARE_META_INTERFACE(PeltoNativeClient)

    enum : uint32_t { ON_NATIVE_EVENT = IBinder::FIRST_CALL_TRANSACTION };

    // Both texts end with their first NUL and are the caller's. Only the result of the proxy shows
    // a failed delivery: DEAD_OBJECT, or FAILED_TRANSACTION when the client does not read.
    virtual status_t onNativeEvent(const char* type, const char* info) = 0;
};

class BnPeltoNativeClient : public BnInterface<IPeltoNativeClient> {
  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                        uint32_t flags = 0) override;
};

}  // namespace android
