#pragma once

#include <string>

// The start that both programs of this folder share: exit codes, the phone.

enum HostExit {
    kHostStopped = 0,
    kHostFailed = 1,
    kHostUsage = 2,
    kHostNoPhone = 3,
    kHostAlreadyPublished = 4,
};

// Opens the phone in that folder, which must be writable; false after one line on stderr.
bool openPhone(const std::string& folder);
