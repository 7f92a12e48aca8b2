#include <utils/String16.h>
#include <utils/String8.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>

namespace android {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// A decoded lead byte: how many bytes follow, its payload bits, the least value of that length.
struct Lead {
    int following;
    char32_t bits;
    char32_t min;
};

Lead leadOf(unsigned char byte) {
    if (byte < 0x80) return {0, byte, 0};
    if (byte >= 0xC2 && byte < 0xE0) return {1, byte & 0x1Fu, 0x80};
    if (byte >= 0xE0 && byte < 0xF0) return {2, byte & 0x0Fu, 0x800};
    if (byte >= 0xF0 && byte < 0xF5) return {3, byte & 0x07u, 0x10000};
    return {-1, 0, 0};
}

bool isSurrogate(char32_t c) {
    return c >= 0xD800 && c < 0xE000;
}

// Reads one character and moves `at` behind it; a byte that starts none is skipped alone.
char32_t nextFromUtf8(const std::string& text, size_t& at) {
    const Lead lead = leadOf(static_cast<unsigned char>(text[at++]));
    if (lead.following < 0) return kReplacement;
    char32_t value = lead.bits;
    size_t end = at;
    for (int i = 0; i < lead.following; ++i, ++end) {
        if (end >= text.size() || (text[end] & 0xC0) != 0x80) return kReplacement;
        value = value << 6 | (static_cast<unsigned char>(text[end]) & 0x3Fu);
    }
    if (value < lead.min || value > 0x10FFFF || isSurrogate(value)) return kReplacement;
    at = end;
    return value;
}

std::u16string toUtf16(const std::string& text) {
    std::u16string result;
    for (size_t at = 0; at < text.size();) {
        const char32_t c = nextFromUtf8(text, at);
        if (c < 0x10000) {
            result += static_cast<char16_t>(c);
        } else {
            result += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            result += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        }
    }
    return result;
}

char32_t nextFromUtf16(const char16_t* text, size_t size, size_t& at) {
    const char32_t first = text[at++];
    if (!isSurrogate(first)) return first;
    if (first >= 0xDC00 || at >= size) return kReplacement;
    const char32_t second = text[at];
    if (second < 0xDC00 || second >= 0xE000) return kReplacement;
    ++at;
    return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
}

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
        return;
    }
    const int following = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr unsigned char kLead[] = {0, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(kLead[following] | (c >> (6 * following)));
    for (int i = following - 1; i >= 0; --i) {
        out += static_cast<char>(0x80 | ((c >> (6 * i)) & 0x3F));
    }
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

String8::String8(const String16& text) {
    for (size_t at = 0; at < text.size();) {
        appendUtf8(mText, nextFromUtf16(text.c_str(), text.size(), at));
    }
}

void String8::appendFormat(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    mText += formatted(format, arguments);
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
