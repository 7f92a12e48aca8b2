#pragma once

#include <spawn.h>

#include <string>
#include <vector>

#include "sim/base/fd.h"

namespace sim {

// Starts a program as a child process. Configure it, then call start().
//
// The child begins with an empty signal mask and every signal at its default action. It inherits
// the descriptors that are set below and those of ours that are not close-on-exec.
class ProcessStarter {
  public:
    ProcessStarter();
    ~ProcessStarter();
    ProcessStarter(const ProcessStarter&) = delete;
    ProcessStarter& operator=(const ProcessStarter&) = delete;

    // The child's descriptor `number` becomes a copy of our descriptor `ours`, or the opened file.
    // Applied in the order of the calls. An `ours` equal to `number` makes the child inherit it.
    void setFd(int number, int ours);
    void openFd(int number, const std::string& path, int flags, mode_t mode = 0);
    // Closes the child's descriptors from this number on.
    void closeFrom(int first);

    // The child's working directory; ours when not set.
    void setDirectory(int directoryFd);
    // The child's environment, each "NAME=VALUE"; ours when not set.
    void setEnvironment(std::vector<std::string> environment);
    // The child leads a session of its own.
    void newSession() { mFlags |= POSIX_SPAWN_SETSID; }

    // Has SIGIO end the child, and the processes it starts, when this object is destroyed or this
    // process ends in any way. The child's standard input is a pipe that stays empty.
    void endWithUs();

    // Starts the program in `file`, searched on our PATH when the name has no slash; arguments[0]
    // is the name that it sees. Returns 0, or an errno value with `pid` untouched.
    int start(const std::string& file, const std::vector<std::string>& arguments, pid_t& pid);

  private:
    void noteError(int error) {
        if (mError == 0) mError = error;
    }

    posix_spawn_file_actions_t mActions;
    posix_spawnattr_t mAttributes;
    short mFlags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    bool mOwnEnvironment = false;
    std::vector<std::string> mEnvironment;
    std::vector<Fd> mCopies;
    Fd mLifeline, mChildsEnd;  // the pipe of endWithUs()
    int mError = 0;            // the first error while configuring
};

// Waits for a child process to end: its wait status, -1 when it is no child of ours.
int waitForExit(pid_t pid);

}  // namespace sim
