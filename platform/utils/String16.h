#pragma once

#include <cstddef>
#include <string>

namespace android {

class String8;

// UTF-16 text: interface names and service names, which are ASCII. Any other byte becomes U+FFFD.
class String16 {
  public:
    String16() = default;
    explicit String16(const char* utf8);
    explicit String16(const String8& utf8);
    String16(const char16_t* text, size_t length) : mText(text, length) {}

    const char16_t* c_str() const { return mText.c_str(); }
    size_t size() const { return mText.size(); }

    bool operator==(const String16& other) const { return mText == other.mText; }

  private:
    std::u16string mText;
};

}  // namespace android
