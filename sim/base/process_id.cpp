#include "sim/base/process_id.h"

#include <time.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

namespace sim {

std::optional<ProcessId> ProcessId::of(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    if (!std::getline(file, text, '\0')) return std::nullopt;
    // The start time is the 20th field after the name, which may hold blanks and parentheses.
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string skipped;
    for (int field = 1; field < 20; ++field) fields >> skipped;
    ProcessId found{pid, 0};
    if (!(fields >> found.startTicks)) return std::nullopt;
    return found;
}

bool ProcessId::runs() const {
    const auto found = of(pid);
    return found && found->startTicks == startTicks;
}

double ProcessId::uptimeSeconds() const {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const double started =
        static_cast<double>(startTicks) / static_cast<double>(sysconf(_SC_CLK_TCK));
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9 - started;
}

}  // namespace sim
