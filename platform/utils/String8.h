#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace android {

class String16;

// UTF-8 text that crosses process boundaries. May hold NUL bytes; size() counts bytes.
//
// Copies share one text, which is never changed: append() gives this object a text of its own.
// Threads: each object is used by one thread at a time; the text may be shared by several.
class String8 {
  public:
    String8() = default;
    String8(const char* text) : String8(std::string(text != nullptr ? text : "")) {}
    String8(const char* text, size_t length) : String8(std::string(text, length)) {}
    explicit String8(std::string text);
    explicit String8(const String16& text);

    const char* c_str() const { return mText != nullptr ? mText->c_str() : ""; }
    size_t size() const { return mText != nullptr ? mText->size() : 0; }
    size_t length() const { return size(); }
    bool isEmpty() const { return size() == 0; }

    void append(const char* text) { *this = String8(std::string(view()).append(text)); }
    void appendFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));
    static String8 format(const char* format, ...) __attribute__((format(printf, 1, 2)));

    String8 operator+(const String8& other) const {
        return String8(std::string(view()).append(other.view()));
    }

    bool operator==(const String8& other) const { return view() == other.view(); }

  private:
    std::string_view view() const { return {c_str(), size()}; }

    std::shared_ptr<const std::string> mText;  // null when empty
};

}  // namespace android
