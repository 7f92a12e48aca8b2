#pragma once

#include <binder/IBinder.h>

namespace android {

class IPeltoNativeClient : public IInterface {
  public:
    virtual status_t onNativeEvent(const char* type, const char* info) = 0;
};

}  // namespace android
