#pragma once

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "sim/base/mutex.h"

namespace sim {

class Log;
class ProgramFaults;
class Root;
struct CommandLine;

// Runs the product's command lines inside the phone; none reaches the workstation's shell. A line
// (command_line.h) names a program of the workstation (workstation_programs.h), which runs with
// every path mapped into the root, or a built-in registered here. Anything else is refused with one
// log line and a non-zero status.
//
// Threads: any; commands run side by side, each on its caller's thread. The faults of ProgramFaults
// apply to every program.
class Shell {
  public:
    // A built-in: takes the words after its name and its output; returns its exit status.
    using Program = std::function<int(const std::vector<std::string>& words, int outputFd)>;

    // All three must outlive this object.
    Shell(const Root& root, Log& log, ProgramFaults& faults);

    // Runs a line and returns its wait status, as system(); 1, "there is a shell", for null.
    int run(const char* command) SIM_EXCLUDES(mMutex);

    // Registers a built-in, found as NAME and as /system/bin/NAME. Replaces one of that name.
    void add(const std::string& name, Program program) SIM_EXCLUDES(mMutex);

    // The last kMaxHistory command lines word for word, oldest first.
    static constexpr size_t kMaxHistory = 1000;
    std::vector<std::string> history() const SIM_EXCLUDES(mMutex);

    static constexpr int kRefused = 126;   // for a line that the grammar does not allow
    static constexpr int kNotFound = 127;  // no such program

  private:
    int execute(const std::string& command);
    int start(const CommandLine& line, int outputFd);
    // Logs one line; returns the wait status for `exitStatus`.
    int refuse(const std::string& command, const std::string& why, int exitStatus);

    const Root& mRoot;
    Log& mLog;
    ProgramFaults& mFaults;
    mutable Mutex mMutex;
    std::map<std::string, Program> mPrograms SIM_GUARDED_BY(mMutex);
    std::deque<std::string> mHistory SIM_GUARDED_BY(mMutex);
};

}  // namespace sim
