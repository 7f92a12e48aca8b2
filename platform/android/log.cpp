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

}  // namespace

int __android_log_write(int prio, const char* tag, const char* text) {
    return text == nullptr ? -EINVAL : writeText(prio, tag, text);
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char text[sim::Log::kMaxMessageBytes];
    va_list args;
    va_start(args, fmt);
    const int length = vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    return length < 0 ? -EINVAL : writeText(prio, tag, text);
}

void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...) {
    char text[sim::Log::kMaxMessageBytes] = "Unspecified assertion failed";
    if (fmt != nullptr) {
        va_list args;
        va_start(args, fmt);
        vsnprintf(text, sizeof(text), fmt, args);
        va_end(args);
    } else if (cond != nullptr) {
        snprintf(text, sizeof(text), "Assertion failed: %s", cond);
    }
    if (sim::Phone::find() != nullptr) {
        writeText(ANDROID_LOG_FATAL, tag, text);
    } else {
        fprintf(stderr, "F %s: %s\n", tag != nullptr ? tag : "", text);
    }
    abort();
}
