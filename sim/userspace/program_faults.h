#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "sim/base/mutex.h"

namespace sim {

// Faults set for programs by name, those of the shell and the services of init alike: a program
// can be told to fail, or to hang before it runs.
// Threads: any.
class ProgramFaults {
  public:
    // Notes that there is a program of that name.
    void add(const std::string& program) SIM_EXCLUDES(mMutex);
    // The names of the programs that there are, sorted.
    std::vector<std::string> programs() SIM_EXCLUDES(mMutex);

    // Makes the program exit with that status instead of running; 0 ends the fault.
    void fail(const std::string& program, int exitStatus) SIM_EXCLUDES(mMutex);
    // Makes the program wait before it runs until release().
    void hang(const std::string& program) SIM_EXCLUDES(mMutex);
    void release(const std::string& program) SIM_EXCLUDES(mMutex);
    // Waits until the program hangs; false after 30 s.
    bool waitHanging(const std::string& program) SIM_EXCLUDES(mMutex);

    // Called where a program is about to run: hangs if it is to, then returns the exit status that
    // it is to end with instead of running, or 0.
    int apply(const std::string& program) SIM_EXCLUDES(mMutex);

  private:
    Mutex mMutex;
    Condition mChanged;
    std::set<std::string> mPrograms SIM_GUARDED_BY(mMutex);
    std::map<std::string, int> mFailing SIM_GUARDED_BY(mMutex);
    std::set<std::string> mHanging SIM_GUARDED_BY(mMutex);
    std::multiset<std::string> mWaiting SIM_GUARDED_BY(mMutex);  // those that wait in apply()
};

}  // namespace sim
