#pragma once

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "sim/base/mutex.h"

namespace sim {

class Root;
struct CommandLine;

// Runs the product's command lines inside the phone. Nothing reaches the workstation's shell: a
// line is words, at most one "> file", and "*" in the last component of a path; a few programs of
// the workstation (host_programs.h) run with every path mapped into the root, the rest are
// stand-ins registered here. Anything else is refused with one log line and a non-zero status.
//
// Threads: any; commands run side by side, each on the thread that asks for it.
class Shell {
  public:
    // A stand-in: its words after its name, and where its output goes; returns its exit status.
    using Program = std::function<int(const std::vector<std::string>& words, int outputFd)>;

    // `root` outlives this.
    explicit Shell(const Root& root);

    // As system(): a wait status. A null command tells that there is a shell (1).
    int run(const char* command) SIM_EXCLUDES(mMutex);

    // A name also answers below /system/bin. A program of that name added before is replaced.
    void add(const std::string& name, Program program) SIM_EXCLUDES(mMutex);

    // The last kHistory command lines word for word, oldest first.
    static constexpr size_t kHistory = 1000;
    std::vector<std::string> history() const SIM_EXCLUDES(mMutex);

    // Faults, by program name: fail() lets it exit with that status instead of running (0 ends
    // it); hang() makes it wait before it runs until release(); waitHanging() waits for a command
    // to hang there, false after 30 s.
    void fail(const std::string& program, int exitStatus) SIM_EXCLUDES(mMutex);
    void hang(const std::string& program) SIM_EXCLUDES(mMutex);
    void release(const std::string& program) SIM_EXCLUDES(mMutex);
    bool waitHanging(const std::string& program) SIM_EXCLUDES(mMutex);
    // For what runs a program by itself: hangs if that is told, then returns the exit status that
    // the program is to end with instead of running, or 0.
    int faultOf(const std::string& program) SIM_EXCLUDES(mMutex);

    static constexpr int kRefused = 126;   // what the grammar or a program's options do not allow
    static constexpr int kNotFound = 127;  // no such program

  private:
    int execute(const std::string& command);
    int start(const CommandLine& line, int outputFd);

    const Root& mRoot;
    mutable Mutex mMutex;
    Condition mChanged;
    std::map<std::string, Program> mPrograms SIM_GUARDED_BY(mMutex);
    std::deque<std::string> mHistory SIM_GUARDED_BY(mMutex);
    std::map<std::string, int> mFailing SIM_GUARDED_BY(mMutex);
    std::set<std::string> mHanging SIM_GUARDED_BY(mMutex);
    std::multiset<std::string> mWaiting SIM_GUARDED_BY(mMutex);  // programs hanging now
};

}  // namespace sim
