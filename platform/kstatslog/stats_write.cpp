#include <errno.h>
#include <kstatslog/kstatslog.h>

#include <string>

#include "sim/base/line_file.h"
#include "sim/phone.h"

namespace KelvoFramework {

int stats_write(int32_t code, int32_t eventId, const char* event, const char* kind,
                int64_t wallMillis, int32_t result, int32_t count, const char* source) {
    if (event == nullptr || kind == nullptr || source == nullptr) return -EINVAL;
    const std::string line = std::to_string(code) + '\t' + std::to_string(eventId) + '\t' + event +
                             '\t' + kind + '\t' + std::to_string(wallMillis) + '\t' +
                             std::to_string(result) + '\t' + std::to_string(count) + '\t' + source;
    return sim::Phone::get().stats().append(line) ? static_cast<int>(line.size()) : -errno;
}

}  // namespace KelvoFramework
