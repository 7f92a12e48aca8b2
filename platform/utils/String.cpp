#include <utils/String16.h>
#include <utils/String8.h>

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace android {

namespace {

// Each ASCII byte becomes one UTF-16 unit, any other byte U+FFFD.
std::u16string toUtf16(const std::string& text) {
    std::u16string result;
    for (const unsigned char byte : text) result += byte < 0x80 ? byte : u'\uFFFD';
    return result;
}

std::string toAscii(const String16& text) {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        const char16_t unit = text.c_str()[i];
        result += unit < 0x80 ? static_cast<char>(unit) : '?';
    }
    return result;
}

__attribute__((format(printf, 1, 0))) std::string formatted(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length <= 0) return {};
    std::string text(static_cast<size_t>(length), '\0');
    vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

}  // namespace

String8::String8(std::string text) {
    if (!text.empty()) mText = std::make_shared<const std::string>(std::move(text));
}

String8::String8(const String16& text) : String8(toAscii(text)) {}

void String8::appendFormat(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    *this = *this + String8(formatted(format, arguments));
    va_end(arguments);
}

String8 String8::format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    String8 result(formatted(format, arguments));
    va_end(arguments);
    return result;
}

String16::String16(const char* utf8) : mText(toUtf16(utf8)) {}
String16::String16(const String8& utf8) : mText(toUtf16({utf8.c_str(), utf8.size()})) {}

}  // namespace android
