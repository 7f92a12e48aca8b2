#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "sim/base/mutex.h"

namespace sim {

class Log;
class ProgramFaults;

// The services that the phone's init can start by name ("ctl.start"), each a handler registered
// here. At most one process of the phone runs a service at a time; it holds the lock of
// run/init/NAME meanwhile. The faults of ProgramFaults apply to services too.
//
// Threads: any. A service runs on its own thread ("sim_service"), with no lock of this object held.
// Never destroyed while one runs.
class Services {
  public:
    using Program = std::function<int()>;  // returns its exit status
    // Called with "running" before the program begins and with "stopped" after it has ended; starts
    // in between are ignored. It must not start a service.
    using Teller = std::function<void(const char* state)>;

    // `directory` exists; the rest must outlive this object.
    Services(std::string directory, Log& log, ProgramFaults& faults)
        : mDirectory(std::move(directory)), mLog(log), mFaults(faults) {}

    // Replaces a service of that name; a run of the old one goes on.
    void add(const std::string& name, Program program) SIM_EXCLUDES(mMutex);
    // Starts the service and returns at once. True and a log line when it runs already; false and a
    // log line when no service has that name, or it cannot be started.
    bool start(const std::string& name, Teller tell) SIM_EXCLUDES(mMutex);
    // Calls `tell` with "stopped" when the service has run but no process runs it now.
    void tellIfKilled(const std::string& name, const Teller& tell);
    // Waits for the services that this process has started, since its end would cut them short.
    // Releases those that hang.
    void awaitStopped() SIM_EXCLUDES(mMutex);

  private:
    class Run;
    Program find(const std::string& name) SIM_EXCLUDES(mMutex);
    void spawn(std::function<void()> body) SIM_EXCLUDES(mMutex);
    void execute(const std::string& name, const Program& program);
    // Logs one line; returns false.
    bool refuse(const std::string& why);

    const std::string mDirectory;
    Log& mLog;
    ProgramFaults& mFaults;
    Mutex mMutex;
    Condition mChanged;
    std::map<std::string, Program> mPrograms SIM_GUARDED_BY(mMutex);
    int mRunning SIM_GUARDED_BY(mMutex) = 0;
};

}  // namespace sim
