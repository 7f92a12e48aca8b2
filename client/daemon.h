#pragma once

#include <sim/fd.h>

#include <optional>
#include <string>
#include <vector>

#include "client/process.h"

namespace pelto {

// A background process of the phone, and the record of it that outlives this one: who it is stands
// in RUN/daemons/NAME, what it prints in RUN/NAME.log.
//
// A process that was not started here is never taken for it. Starts and stops of several clients
// come one after the other. Errors: Failure.
class Daemon {
  public:
    Daemon(const std::string& runDir, const std::string& name);

    // The one that runs.
    std::optional<ProcessId> running() const;

    // Starts it unless it runs and waits until it tells on descriptor kReadyFd that it is up.
    ProcessId start(const std::vector<std::string>& command);
    // Asks it to end and waits for that; none when none ran.
    std::optional<ProcessId> stop();

    static constexpr int kReadyFd = 3;

  private:
    sim::Fd lockRecords() const;
    void record(const ProcessId& process) const;
    ProcessId spawn(const std::vector<std::string>& command, int readyFd) const;
    void awaitReady(const ProcessId& process, int readyFd) const;
    std::string lastLine() const;

    const std::string mName;
    const std::string mFolder;  // of the records
    const std::string mOutput;
};

}  // namespace pelto
