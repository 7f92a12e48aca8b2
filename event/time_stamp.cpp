#include "event/time_stamp.h"

#include <android/log.h>

#include <cstdio>

#include "phone/phone.h"

namespace android {

namespace {

int32_t fail(const char* tag, const char* why) {
    __android_log_print(ANDROID_LOG_ERROR, tag, "%s", why);
    return -1;
}

}  // namespace

int32_t writeTimeStamp(const char* tag, const char* prefix, char* buffer, int32_t size) {
    if (buffer == nullptr || size < kMinTimeStampBytes) return fail(tag, "Invalid time buffer");
    const time_t now = phone::time(nullptr);
    if (now == 0) return fail(tag, "Unable to get time");
    tzset();  // localtime_r() alone keeps the zone of its first call
    struct tm local {};
    if (localtime_r(&now, &local) == nullptr) return fail(tag, "Unable to get local time");
    snprintf(buffer, kMinTimeStampBytes, "%s%04d-%02d-%02d_%02d-%02d-%02d", prefix,
             local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
             local.tm_sec);
    return 0;
}

}  // namespace android
