#include "sim/userspace/log.h"

#include <android/log.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include "sim/phone.h"

namespace {

int writeText(int prio, const char* tag, const char* text) {
    if (tag == nullptr) tag = "";
    const int savedErrno = errno;
    sim::Log& log = sim::Phone::get().log();
    errno = savedErrno;  // the first call opens the phone
    return log.write(prio, tag, text) ? 1 : -EIO;
}

int printText(int prio, const char* tag, const char* fmt, va_list args)
    __attribute__((__format__(printf, 3, 0)));

int printText(int prio, const char* tag, const char* fmt, va_list args) {
    char text[sim::Log::kMaxMessageBytes];
    if (vsnprintf(text, sizeof(text), fmt, args) < 0) return -EINVAL;
    return writeText(prio, tag, text);
}

}  // namespace

int __android_log_write(int prio, const char* tag, const char* text) {
    return text == nullptr ? -EINVAL : writeText(prio, tag, text);
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    int result = printText(prio, tag, fmt, args);
    va_end(args);
    return result;
}

void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...) {
    if (fmt != nullptr) {
        va_list args;
        va_start(args, fmt);
        printText(ANDROID_LOG_FATAL, tag, fmt, args);
        va_end(args);
    } else if (cond != nullptr) {
        __android_log_print(ANDROID_LOG_FATAL, tag, "Assertion failed: %s", cond);
    } else {
        writeText(ANDROID_LOG_FATAL, tag, "Unspecified assertion failed");
    }
    abort();
}
