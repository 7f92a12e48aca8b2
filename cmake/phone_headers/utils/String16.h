#pragma once

namespace android {

class String16 {
  public:
    explicit String16(const char* utf8);
    ~String16();
};

}  // namespace android
