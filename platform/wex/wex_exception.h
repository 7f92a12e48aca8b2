#pragma once

// The reporting library: takes exception reports and collects the logs they name. Any thread.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// One report; 288 bytes, the same on every build.
struct wex_exception_info {
    int64_t exceptionTime;  // seconds since the epoch
    uint32_t exceptionId;
    uint8_t reserved[12];  // zero
    uint64_t atomicLogs;   // a bit for each log to attach
    char logName[256];     // ends with a NUL
};

// 0 when the report was accepted. The record is the caller's again on return.
int wex_raise_exception(const struct wex_exception_info* info);

#ifdef __cplusplus
}

#include <cstddef>

static_assert(sizeof(wex_exception_info) == 288, "the library's record");
static_assert(offsetof(wex_exception_info, exceptionTime) == 0, "");
static_assert(offsetof(wex_exception_info, exceptionId) == 8, "");
static_assert(offsetof(wex_exception_info, reserved) == 12, "");
static_assert(offsetof(wex_exception_info, atomicLogs) == 24, "");
static_assert(offsetof(wex_exception_info, logName) == 32, "");
#endif
