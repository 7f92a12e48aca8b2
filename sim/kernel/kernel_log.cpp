#include "sim/kernel/kernel_log.h"

#include <stdio.h>

#include <string>

#include "sim/base/clock.h"

namespace sim {

void KernelLog::append(std::string_view text) {
    const long long micros = Clock::get().bootNanos() / 1000;
    char stamp[40];
    snprintf(stamp, sizeof(stamp), "[%5lld.%06lld] ", micros / 1000000, micros % 1000000);
    LineFile::append(stamp + std::string(text));
}

}  // namespace sim
