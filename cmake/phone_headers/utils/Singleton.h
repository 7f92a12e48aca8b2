#pragma once

#include <utils/Mutex.h>

namespace android {

template <typename T>
class Singleton {
  public:
    static T& getInstance();

  protected:
    Singleton();
    ~Singleton();

  private:
    static Mutex sLock;
    static T* sInstance;
};

#define ANDROID_SINGLETON_STATIC_INSTANCE(TYPE) \
    template <>                                 \
    Mutex Singleton<TYPE>::sLock{};             \
    template <>                                 \
    TYPE* Singleton<TYPE>::sInstance = nullptr;

}  // namespace android
