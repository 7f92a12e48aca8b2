#pragma once

#include <cstddef>

namespace android {

class String8 {
  public:
    String8();
    String8(const String8& other);
    explicit String8(const char* text);
    String8(const char* text, size_t length);
    ~String8();
    String8& operator=(const String8& other);
    const char* c_str() const;
    size_t length() const;
    bool isEmpty() const;
    int append(const char* text);
    int append(const String8& other);
    int appendFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));
    static String8 format(const char* format, ...) __attribute__((format(printf, 1, 2)));
    bool operator==(const String8& other) const;
    String8 operator+(const String8& other) const;
};

}  // namespace android
