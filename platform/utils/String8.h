#pragma once

#include <cstddef>
#include <string>

namespace android {

class String16;

// UTF-8 text that crosses process boundaries. May hold NUL bytes; size() counts bytes.
class String8 {
  public:
    String8() = default;
    String8(const char* text) : mText(text != nullptr ? text : "") {}
    String8(const char* text, size_t length) : mText(text, length) {}
    explicit String8(const std::string& text) : mText(text) {}
    explicit String8(const String16& text);

    const char* c_str() const { return mText.c_str(); }
    size_t size() const { return mText.size(); }
    size_t length() const { return mText.size(); }
    bool isEmpty() const { return mText.empty(); }

    void append(const char* text) { mText += text; }
    void appendFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));
    static String8 format(const char* format, ...) __attribute__((format(printf, 1, 2)));

    String8 operator+(const String8& other) const { return String8(mText + other.mText); }

    bool operator==(const String8& other) const { return mText == other.mText; }

  private:
    std::string mText;
};

}  // namespace android
