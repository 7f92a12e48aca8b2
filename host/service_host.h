#pragma once

#include <signal.h>

#include <functional>
#include <string>

#include "host/program_start.h"

struct HostOptions {
    std::string phoneFolder;
    int threads = 16;  // how many execute calls
    int readyFd = -1;  // gets the line "ready" once the service is published; -1: none
    bool workstationKernel = false;  // the audio channel uses this machine's kernel
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

// Constructs the service, publishes it on the open phone and executes calls until the first stop
// signal. Then withdraws its name, lets running calls finish and returns an exit code. Failures
// are one line on stderr. An exception that a component throws at start-up is not caught. Without
// the phone's folder the process ends at once (folder_watch.h).
//
// The caller ends the process by _exit(): a service that ran is never destroyed.
int runServiceHost(const HostOptions& options, StopSignals& signals);
