#pragma once

#include <binder/IBinder.h>
#include <utils/String16.h>

namespace android {

class IServiceManager : public virtual RefBase {
  public:
    virtual sp<IBinder> getService(const String16& name) const = 0;
};

sp<IServiceManager> defaultServiceManager();

}  // namespace android
