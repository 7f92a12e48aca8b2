#pragma once

#include <string>

namespace CLI {
class App;
}

// The start that both programs of this folder share: exit codes, command line, the phone.

enum HostExit {
    kHostStopped = 0,
    kHostFailed = 1,
    kHostUsage = 2,
    kHostNoPhone = 3,
    kHostAlreadyPublished = 4,
};

// Parses the command line. Returns -1 when the program is to go on. Otherwise help, or one line
// about what is wrong, has been printed, and the result is the exit code.
int parseCommandLine(CLI::App& app, int argc, char** argv);

// Opens the phone in that folder, which must be writable; false after one line on stderr.
bool openPhone(const std::string& folder);
