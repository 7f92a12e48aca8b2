#pragma once

#include <sim/base/fd.h>
#include <sim/base/process_id.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace pelto {

using sim::ProcessId;

// A background process of the phone, and the process that it runs the service in when it is a
// tracer or the like. Their numbers and start times are recorded in RUN/daemons/NAME, which
// outlives the client; the output goes to RUN/NAME.log.
//
// Only processes that start() recorded are taken for the daemon. A file lock puts the starts and
// stops of several clients one after the other. Errors: Failure.
class Daemon {
  public:
    struct Started {
        pid_t pid;  // of the process that serves
        bool ranAlready;
    };
    struct Stopped {
        pid_t pid;                  // of the process that served
        std::vector<pid_t> killed;  // those that SIGKILL ended
    };

    Daemon(const std::string& runDir, const std::string& name);

    // Starts it unless it runs, and waits until it writes to its descriptor kReadyFd; then
    // `serving` returns the process that serves, 0 when it has ended.
    Started start(const std::vector<std::string>& command, const std::function<pid_t()>& serving);
    // Ends the process that serves by SIGTERM; what is left after `patienceSeconds`, and a tracer
    // that has not followed it, by SIGKILL. With no patience by SIGKILL at once. nullopt when none
    // runs.
    std::optional<Stopped> stop(double patienceSeconds);

    static constexpr int kReadyFd = 3;

  private:
    struct Running {
        pid_t pid;
        sim::Fd handle;  // a pidfd
    };

    // The recorded processes that have not ended; the last one serves.
    std::vector<Running> running() const;
    // Returns the file that holds the lock as long as it is open.
    sim::Fd lockRecords() const;
    void record(const std::vector<ProcessId>& processes) const;
    static void signal(const Running& process, int number);
    static std::vector<pid_t> killAll(const std::vector<Running>& processes);
    static bool awaitEnd(const std::vector<Running>& processes, double seconds);
    ProcessId spawn(const std::vector<std::string>& command, int readyFd) const;
    void awaitReady(const ProcessId& process, int readyFd) const;
    std::string lastLine() const;

    const std::string mName;
    const std::string mFolder;  // where the records are
    const std::string mOutput;
};

}  // namespace pelto
