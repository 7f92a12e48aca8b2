#pragma once

#include <signal.h>

#include <functional>
#include <string>

namespace CLI {
class App;
}

// The exit codes of the programs in this folder.
enum HostExit {
    kHostStopped = 0,
    kHostFailed = 1,
    kHostUsage = 2,
    kHostNoPhone = 3,
    kHostAlreadyPublished = 4,
};

struct HostOptions {
    std::string phoneFolder;
    int threads = 16;  // that execute calls
    int readyFd = -1;  // gets the line "ready" once the service is published; -1: none
    bool workstationKernel = false;
};

// Blocks SIGTERM and SIGINT in the thread that constructs it and in those that this thread starts
// later, so that the signals interrupt no system call there. A thread of its own waits for them.
class StopSignals {
  public:
    StopSignals();

    // Calls `stop` on that thread at the first signal. The second signal ends the process with exit
    // code 1. To be called once.
    void onFirst(std::function<void()> stop);

  private:
    sigset_t mSignals;
};

// Parses a command line. Returns -1 when the program is to go on; otherwise help or one line about
// what is wrong was printed, and this is the exit code.
int parseCommandLine(CLI::App& app, int argc, char** argv);

// Opens the phone; false after one line on stderr.
bool openPhone(const std::string& folder);

// Constructs the service, publishes it on the open phone and executes calls until the first stop
// signal. Then withdraws its name, lets running calls finish and returns an exit code. Failures
// are one line on stderr. An exception that a component throws at start-up is not caught.
//
// The caller ends the process by _exit(): a service that ran is never destroyed.
int runServiceHost(const HostOptions& options, StopSignals& signals);
