#pragma once

#include <cstdint>

struct wex_exception_info {
    int64_t exceptionTime;
    uint32_t exceptionId;
    uint8_t reserved[12];
    uint64_t atomicLogs;
    char logName[256];
};

extern "C" int wex_raise_exception(const wex_exception_info* info);
