#pragma once

#include <string>

// What the host program is told on its command line.
struct HostOptions {
    std::string phoneFolder;
    int threads = 16;
    int readyFd = -1;  // none
    bool workstationKernel = false;
};

// The exit codes of the host program.
enum HostExit {
    kHostStopped = 0,
    kHostFailed = 1,
    kHostUsage = 2,
    kHostNoPhone = 3,
    kHostAlreadyPublished = 4,
};

// Returns -1 when the host is to run, else the exit code: help or what is wrong was printed.
int parseHostOptions(int argc, char** argv, HostOptions* options);
