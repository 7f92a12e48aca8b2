#pragma once

#include <string>

namespace sim {

class Root;

// The crash of a process.
struct Crash {
    std::string process;
    int pid = 0;
    int signal = 6;
    std::string reason;  // the abort message
};

// Writes the crash as the phone does, to the first free one of /data/tombstones/tombstone_00 to
// _31, else over the oldest. Returns its phone path, or "" when it cannot be written, with the
// others left as they are. Control characters in the texts become "?"; each is cut to 256 bytes.
// Threads: any, of any process.
std::string writeTombstone(const Root& root, const Crash& crash);

}  // namespace sim
