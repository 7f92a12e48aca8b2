#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "sim/base/mutex.h"
#include "sim/control/request.h"

namespace sim {

class Log;

// The server by which other processes drive the parts of the phone that live in the service's
// process: a socket (SOCK_SEQPACKET) at run/control that takes commands by name.
//
// Threads: add() and serve() from any thread. Commands run one at a time on "sim_control" and must
//   not wait: one that would returns an error with `retryFor`, and others run between its tries.
// Errors: a datagram that cannot be a request costs one log line and its sender the connection. A
//   command that throws is answered by what it threw: as "usage" when that is a
//   std::invalid_argument, else as "error". An error whose `retryFor` has passed becomes "timeout".
class Control {
  public:
    using Arguments = std::vector<std::string>;
    using Command = std::function<Reply(const Arguments& arguments)>;  // without the command's name

    // A further connection closes the oldest one that has waited for no answer for a second; while
    // there is none, it waits.
    static constexpr size_t kMaxConnections = 32;

    // `log` must outlive this object.
    Control(std::string runDirectory, Log& log) : mDirectory(std::move(runDirectory)), mLog(log) {}

    // A command of that name added before is replaced.
    void add(const std::string& name, Command command) SIM_EXCLUDES(mMutex);

    // Starts to serve, until the process ends. False and a log line when another process serves the
    // phone already, or when the socket cannot be made.
    bool serve() SIM_EXCLUDES(mMutex);
    // Removes the socket, so that none is left when the process ends.
    void withdraw() SIM_EXCLUDES(mMutex);

    // Runs a command on the caller's thread, as the server does: the command's name, then its
    // arguments; at least one word.
    Reply run(const Arguments& words) SIM_EXCLUDES(mMutex);

  private:
    const std::string mDirectory;
    Log& mLog;
    Mutex mMutex;
    std::map<std::string, Command> mCommands SIM_GUARDED_BY(mMutex);
    bool mServing SIM_GUARDED_BY(mMutex) = false;
};

}  // namespace sim
