#pragma once

#include <sim/fd.h>
#include <sys/types.h>

#include <optional>
#include <string>

namespace pelto {

// A process by number and start time, so that a number used again is not taken for it.
struct ProcessId {
    pid_t pid;
    uint64_t startTicks;  // since the workstation's boot, in clock ticks

    // The process that has the number now.
    static std::optional<ProcessId> of(pid_t pid);
    double uptimeSeconds() const;
};

// A handle of the process that reaches it and no other; none when it has ended.
sim::Fd openProcess(const ProcessId& process);
bool hasEnded(const sim::Fd& handle);
bool signalProcess(const sim::Fd& handle, int number);
// False when it has not ended by then.
bool waitForEnd(const sim::Fd& handle, double seconds);

}  // namespace pelto
