#pragma once

#include <binder/Binder.h>

namespace android {

// Common base of an interface class, its proxy and its local implementation.
class IInterface : public virtual RefBase {
  public:
    IInterface() = default;

    // The object behind an interface pointer; null for null.
    static sp<IBinder> asBinder(const IInterface* interface);
    static sp<IBinder> asBinder(const sp<IInterface>& interface);

  protected:
    ~IInterface() override = default;
    virtual IBinder* onAsBinder() = 0;

    // For asInterface(): the implementation of that interface in this process, else the proxy of a
    // remote object, made unless there is one. Null for null and for other objects of this process.
    static sp<IInterface> find(const sp<IBinder>& object, const String16& descriptor,
                               sp<IInterface> (*makeProxy)(const sp<IBinder>& remote));
};

// The interface behind an object: the implementation itself in its own process, else its proxy.
// The caller vouches for the type of a remote object. Null gives null.
template <typename INTERFACE>
sp<INTERFACE> interface_cast(const sp<IBinder>& object) {
    return INTERFACE::asInterface(object);
}

// Base of a local implementation.
template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {
  public:
    sp<IInterface> queryLocalInterface(const String16& wanted) override {
        return wanted == INTERFACE::descriptor ? sp<IInterface>(this) : nullptr;
    }
    const String16& getInterfaceDescriptor() const override { return INTERFACE::descriptor; }

  protected:
    IBinder* onAsBinder() override { return this; }
};

// Base of a proxy.
template <typename INTERFACE>
class BpInterface : public INTERFACE, public BpRefBase {
  public:
    explicit BpInterface(const sp<IBinder>& remote) : BpRefBase(remote) {}

  protected:
    IBinder* onAsBinder() override { return this->remote(); }
};

#define DECLARE_META_INTERFACE(INTERFACE)                              \
  public:                                                              \
    static const ::android::String16& descriptor;                      \
    static ::android::sp<I##INTERFACE> asInterface(                    \
        const ::android::sp<::android::IBinder>& object);              \
    virtual const ::android::String16& getInterfaceDescriptor() const; \
    I##INTERFACE();                                                    \
    ~I##INTERFACE() override;

// The descriptor is never freed: calls may come in until the process ends.
#define IMPLEMENT_META_INTERFACE(INTERFACE, NAME)                                          \
    const ::android::String16& I##INTERFACE::descriptor = *new ::android::String16(NAME);  \
    ::android::sp<I##INTERFACE> I##INTERFACE::asInterface(                                 \
        const ::android::sp<::android::IBinder>& object) {                                 \
        const ::android::sp<::android::IInterface> found =                                 \
            find(object, descriptor, [](const ::android::sp<::android::IBinder>& remote) { \
                return ::android::sp<::android::IInterface>(new Bp##INTERFACE(remote));    \
            });                                                                            \
        return static_cast<I##INTERFACE*>(found.get());                                    \
    }                                                                                      \
    const ::android::String16& I##INTERFACE::getInterfaceDescriptor() const {              \
        return descriptor;                                                                 \
    }                                                                                      \
    I##INTERFACE::I##INTERFACE() = default;                                                \
    I##INTERFACE::~I##INTERFACE() = default;

// First statement of an operation in onTransact(): refuses a caller that names another interface.
#define CHECK_INTERFACE(interface, data, reply) \
    if (!(data).checkInterface(this)) return ::android::PERMISSION_DENIED

}  // namespace android
