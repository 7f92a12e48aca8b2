#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "sim/base/fd.h"

namespace sim {

// Requests to the process that serves a phone (see Control), and their wire format, which both
// sides use.
//
// Wire: a request is one datagram of NUL-separated strings, the command's name first. A reply is
//   "ok", "error", "usage" or "timeout" and its texts, NUL-separated, cut into datagrams; each
//   starts with '+' when more follow and with '.' when it is the last. Before the reply of a
//   command that waits for something goes one datagram "~".

struct Reply {
    bool ok = false;
    std::vector<std::string> texts;  // the results, or one text that says what went wrong
    // A transient error: for this long after the request the server retries the command before it
    // answers. Less than kReplyTimeout.
    std::chrono::seconds retryFor{0};
    enum class Error {
        kFailed,
        kUsage,    // the command or its arguments are wrong
        kTimeout,  // what it waited for did not come, or no reply did
    } error = Error::kFailed;
};

constexpr size_t kMaxRequestBytes = 64 * 1024;
constexpr size_t kMaxReplyBytes = 4 << 20;         // a longer reply becomes an error
constexpr std::chrono::seconds kReplyTimeout{90};  // for a command that waits
// The first text of a reply that is an error, by Reply::Error.
constexpr const char* kErrorWords[] = {"error", "usage", "timeout"};

// Sends the command's name and its arguments to the process that serves the phone in `folder`. An
// error kTimeout, which names that process, when it does not answer within `timeout`, or within
// kReplyTimeout of saying that the command waits. Throws std::invalid_argument when an argument
// cannot be sent, and std::runtime_error when no process serves the phone; both with one line.
Reply controlRequest(const std::string& folder, const std::vector<std::string>& words,
                     std::chrono::nanoseconds timeout = kReplyTimeout);

// Connects to the control socket; throws as controlRequest() does.
Fd connectToControl(const std::string& runDirectory);

// Opens (O_PATH) the directory in which the socket is published as "control".
Fd openControlDirectory(const std::string& runDirectory);
// Throws std::runtime_error with the socket's path and why it cannot be used.
[[noreturn]] void failControl(const std::string& runDirectory, const std::string& why);

// Join and split the strings of a request or a reply, which have NULs between them.
std::string joinTexts(const std::vector<std::string>& texts);
std::vector<std::string> splitTexts(const std::string& joined);

}  // namespace sim
