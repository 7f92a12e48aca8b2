#pragma once

#include <time.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace bench {

// Figures by name: rates per second, times in nanoseconds unless the name says otherwise.
using Figures = std::map<std::string, double>;

inline int64_t nowNanos() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

// The processor time of this process, all its threads together.
inline int64_t cpuNanos() {
    timespec used;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return int64_t{used.tv_sec} * 1000000000 + used.tv_nsec;
}

inline double percentile(std::vector<int64_t>& values, double share) {
    if (values.empty()) return 0;
    const auto at = static_cast<ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + at, values.end());
    return static_cast<double>(values[static_cast<size_t>(at)]);
}

inline Figures percentiles(std::vector<int64_t>& values) {
    return {{"p50", percentile(values, 0.5)},
            {"p90", percentile(values, 0.9)},
            {"p99", percentile(values, 0.99)},
            {"p999", percentile(values, 0.999)}};
}

}  // namespace bench
