#pragma once

#include <utils/Mutex.h>

namespace android {

// Most source files see the static members without their definition, which clang warns about.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wundefined-var-template"
#endif

// The one instance of T in the process: made by the first getInstance() under a static lock, never
// deleted. Exactly one source file contains ANDROID_SINGLETON_STATIC_INSTANCE(T).
template <typename T>
class Singleton {
  public:
    static T& getInstance() {
        Mutex::Autolock lock(sLock);
        if (sInstance == nullptr) sInstance = new T();
        return *sInstance;
    }

    Singleton(const Singleton&) = delete;
    Singleton& operator=(const Singleton&) = delete;

  protected:
    Singleton() = default;
    ~Singleton() = default;

  private:
    static Mutex sLock;
    static T* sInstance;
};

#if defined(__clang__)
#pragma clang diagnostic pop
#endif

#define ANDROID_SINGLETON_STATIC_INSTANCE(TYPE)           \
    template <>                                           \
    ::android::Mutex android::Singleton<TYPE>::sLock{};   \
    template <>                                           \
    TYPE* ::android::Singleton<TYPE>::sInstance(nullptr); \
    template class ::android::Singleton<TYPE>;

}  // namespace android
