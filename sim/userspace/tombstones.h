#pragma once

#include <string>

namespace sim {

class Root;

// What died, and how: "audioserver", 6, "SIGABRT".
struct Crash {
    std::string process;
    int pid = 0;
    int signal = 6;
    std::string reason;  // the abort message
};

// Writes the crash as the phone does, to the next of /data/tombstones/tombstone_00 to _31, and then
// again from _00 on: the oldest is replaced. Returns its phone path, or "" when it cannot be
// written; then all are as they were. Control characters in the texts become "?"; each is cut to
// 256 bytes.
// Threads: any, and of any process.
std::string writeTombstone(const Root& root, const Crash& crash);

}  // namespace sim
