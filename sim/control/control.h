#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "sim/base/mutex.h"

namespace sim {

class Phone;

struct Reply {
    bool ok = false;
    std::vector<std::string> texts;  // the results, or one text that says what went wrong
    // For so long after the request its command is run again, since this error may pass; only then
    // is it the answer. Less than a client waits for one.
    std::chrono::seconds patience{0};
};

// How another process drives the ends of the phone that live in the service's process: a socket
// (SOCK_SEQPACKET) at run/control that takes commands by name.
//
// Wire: a request is one datagram of NUL-separated strings, the command's name first. A reply is
//   "ok" or "error" and its texts, NUL-separated, cut into datagrams; in front of each stands '+'
//   when more follow and '.' when it is the last.
// Threads: add() and serve() from any thread; the commands run one at a time on "sim_control".
//   None may wait there: one that has to says so by the patience of its reply, and others run
//   between its tries.
// Errors: what cannot be a request costs one log line and its sender the connection. A command
//   that throws is answered by "error" and what it threw.
class Control {
  public:
    using Reply = sim::Reply;
    using Arguments = std::vector<std::string>;
    using Command = std::function<Reply(const Arguments& arguments)>;  // without the name

    static constexpr size_t kRequestBytes = 64 * 1024;
    static constexpr size_t kReplyBytes = 4 << 20;  // a longer reply becomes an error
    // Of those that come when so many are connected, each takes the place of the oldest.
    static constexpr size_t kConnections = 32;

    explicit Control(std::string runDirectory) : mDirectory(std::move(runDirectory)) {}

    // A command of that name added before is replaced.
    void add(const std::string& name, Command command) SIM_EXCLUDES(mMutex);

    // Serves until the process ends. False and a log line when another process does so already, or
    // when the socket cannot be made.
    bool serve() SIM_EXCLUDES(mMutex);
    // Takes the socket's name away, so that none of it is left when the process ends.
    void withdraw() SIM_EXCLUDES(mMutex);

  private:
    friend class ControlServer;
    Reply run(const Arguments& words) SIM_EXCLUDES(mMutex);

    const std::string mDirectory;
    Mutex mMutex;
    std::map<std::string, Command> mCommands SIM_GUARDED_BY(mMutex);
    bool mServing SIM_GUARDED_BY(mMutex) = false;
};

// One request to whoever serves the phone in `folder`: the command's name and its arguments.
// Throws std::runtime_error with one line when nobody serves it, an argument cannot be sent, or no
// whole reply comes within a minute and a half.
Reply controlRequest(const std::string& folder, const std::vector<std::string>& words);
Reply controlRequest(const Phone& phone, const std::vector<std::string>& words);

}  // namespace sim
