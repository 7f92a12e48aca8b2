#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

namespace sim {

// A process by number and start time: another process that gets the number later differs.
struct ProcessId {
    pid_t pid;
    uint64_t startTicks;  // since the workstation's boot, in clock ticks

    // The process that has the number at present.
    static std::optional<ProcessId> of(pid_t pid);
    bool runs() const;
    double uptimeSeconds() const;

    bool operator<(const ProcessId& other) const {
        return pid != other.pid ? pid < other.pid : startTicks < other.startTicks;
    }
};

}  // namespace sim
