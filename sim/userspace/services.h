#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "sim/base/mutex.h"

namespace sim {

class Shell;

// The services that the phone's init can start by name ("ctl.start"): stand-ins, registered by
// whoever plays them. Of all processes of the phone one at most runs a service; it holds the lock
// of the file of that name in run/init meanwhile. The shell's faults for a program of a service's
// name are the service's too.
//
// Threads: any. A service runs on a thread of its own ("sim_service"), with no lock of this held.
// Never destroyed while one runs.
class Services {
  public:
    using Program = std::function<int()>;  // returns its exit status
    // Told "running" before the program begins and "stopped" after it has ended, until which the
    // next start is ignored. It starts nothing itself.
    using Teller = std::function<void(const char* state)>;

    // `directory` exists; `shell` outlives this.
    Services(std::string directory, Shell& shell)
        : mDirectory(std::move(directory)), mShell(shell) {}

    // A service of that name registered before is replaced; what runs of it goes on.
    void add(const std::string& name, Program program) SIM_EXCLUDES(mMutex);
    // Has the service run and waits for nothing. One that runs already is left alone, with a log
    // line; false and a log line when there is none of that name, or it cannot be started.
    bool start(const std::string& name, Teller tell) SIM_EXCLUDES(mMutex);
    // Waits until nothing runs that this process has started: its end would cut it short. What
    // hangs is released.
    void awaitStopped() SIM_EXCLUDES(mMutex);

  private:
    class Run;
    Program find(const std::string& name) SIM_EXCLUDES(mMutex);
    void spawn(std::function<void()> body) SIM_EXCLUDES(mMutex);
    void execute(const std::string& name, const Program& program);

    const std::string mDirectory;
    Shell& mShell;
    Mutex mMutex;
    Condition mChanged;
    std::map<std::string, Program> mPrograms SIM_GUARDED_BY(mMutex);
    int mRunning SIM_GUARDED_BY(mMutex) = 0;
};

}  // namespace sim
