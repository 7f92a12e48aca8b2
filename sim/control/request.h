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
//   "ok" or "error" and its texts, NUL-separated, cut into datagrams; each starts with '+' when
//   more follow and with '.' when it is the last.

struct Reply {
    bool ok = false;
    std::vector<std::string> texts;  // the results, or one text that says what went wrong
    // A transient error: for this long after the request the server retries the command before it
    // answers. Less than kReplyTimeout.
    std::chrono::seconds retryFor{0};
};

constexpr size_t kMaxRequestBytes = 64 * 1024;
constexpr size_t kMaxReplyBytes = 4 << 20;         // a longer reply becomes an error
constexpr std::chrono::seconds kReplyTimeout{90};  // a client waits no longer

// Sends the command's name and its arguments to the process that serves the phone in `folder`.
// Throws std::runtime_error with one line when no process serves it, an argument cannot be sent, or
// no whole reply comes within kReplyTimeout.
Reply controlRequest(const std::string& folder, const std::vector<std::string>& words);

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
