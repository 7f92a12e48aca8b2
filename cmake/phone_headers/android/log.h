#pragma once

enum {
    ANDROID_LOG_VERBOSE = 2,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
};

extern "C" {
int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
void __android_log_assert(const char* condition, const char* tag, const char* format, ...)
    __attribute__((noreturn, format(printf, 3, 4)));
}
