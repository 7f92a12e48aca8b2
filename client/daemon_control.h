#pragma once

#include <sim/base/fd.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace pelto {

// A process by number and start time: another process that gets the number later differs.
struct ProcessId {
    pid_t pid;
    uint64_t startTicks;  // since the workstation's boot, in clock ticks

    // The process that has the number at present.
    static std::optional<ProcessId> of(pid_t pid);
    double uptimeSeconds() const;
};

// A background process of the phone. Its process number and start time are recorded in
// RUN/daemons/NAME, which outlives the client; its output goes to RUN/NAME.log.
//
// Only a process that start() started is taken for the daemon. A file lock puts the starts and
// stops of several clients one after the other. Errors: Failure.
class Daemon {
  public:
    Daemon(const std::string& runDir, const std::string& name);

    // Starts it unless it runs, and waits until it writes to its descriptor kReadyFd.
    ProcessId start(const std::vector<std::string>& command);
    // Sends SIGTERM and waits for the end; nullopt when it does not run.
    std::optional<ProcessId> stop();

    static constexpr int kReadyFd = 3;

  private:
    struct Running {
        ProcessId process;
        sim::Fd handle;  // a pidfd
    };

    std::optional<Running> running() const;
    sim::Fd lockRecords() const;
    void record(const ProcessId& process) const;
    ProcessId spawn(const std::vector<std::string>& command, int readyFd) const;
    void awaitReady(const ProcessId& process, int readyFd) const;
    std::string lastLine() const;

    const std::string mName;
    const std::string mFolder;  // where the records are
    const std::string mOutput;
};

}  // namespace pelto
