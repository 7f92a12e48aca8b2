#pragma once

#include <sys/socket.h>

#include <optional>
#include <string>

#include "sim/base/fd.h"

namespace sim {

// Unix-domain sockets published by name in a folder of the phone.
//
// A name belongs to the process that holds the lock of .NAME.lock, so that two cannot publish it;
// the lock ends with its process. The socket is bound as .NAME.new and renamed once it listens, so
// that a name leads to a listening socket or to a dead process's.
// The folder is given by its descriptor (O_PATH will do), since its path may be longer than a
// socket's address.

struct PublishedSocket {
    Fd lock;       // holds the name as long as it is open
    Fd listening;  // does not block
};

// Publishes a socket of `type` (SOCK_STREAM, ...) with mode 0600. 0, or the errno: EWOULDBLOCK when
// another process holds the name.
int publishSocket(const Fd& folder, const std::string& name, int type, PublishedSocket& published);

// Connects to the socket of that name; `type` may hold SOCK_NONBLOCK. Invalid with errno set on
// failure: ENOENT or ECONNREFUSED when nobody publishes the name.
Fd connectSocket(const Fd& folder, const std::string& name, int type);

// The process and user at the other end, as they were when it connected or published.
std::optional<ucred> peerOf(int fd);

// Whether the peer runs as our user or as root: callers refuse others.
bool isTrusted(const ucred& peer);

}  // namespace sim
