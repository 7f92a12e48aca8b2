#pragma once

#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/String8.h>

namespace android {

class Parcel {
  public:
    Parcel();
    ~Parcel();
    status_t writeInterfaceToken(const String16& interface);
    status_t writeInt32(int32_t value);
    status_t writeString8(const String8& text);
};

}  // namespace android
