#include "sim/base/unix_socket.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace sim {
namespace {

constexpr int kBacklog = 1024;

// Calls bind() or connect() with the address of a name in the folder.
int callWithAddress(int (*call)(int, const sockaddr*, socklen_t), const Fd& socket,
                    const Fd& folder, const std::string& name) {
    const std::string path = "/proc/self/fd/" + std::to_string(folder.get()) + '/' + name;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(address.sun_path, path.data(), path.size());
    return call(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

Fd newSocket(int type) {
    return Fd(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
}

}  // namespace

int publishSocket(const Fd& folder, const std::string& name, int type, PublishedSocket& published) {
    const std::string lockName = '.' + name + ".lock", fresh = '.' + name + ".new";
    Fd lock(
        openat(folder.get(), lockName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock.valid() || flock(lock.get(), LOCK_EX | LOCK_NB) != 0) return errno;
    unlinkat(folder.get(), fresh.c_str(), 0);
    Fd listening = newSocket(type | SOCK_NONBLOCK);
    if (!listening.valid() || callWithAddress(bind, listening, folder, fresh) != 0 ||
        fchmodat(folder.get(), fresh.c_str(), 0600, 0) != 0 ||
        listen(listening.get(), kBacklog) != 0 ||
        renameat(folder.get(), fresh.c_str(), folder.get(), name.c_str()) != 0) {
        return errno;
    }
    published = {std::move(lock), std::move(listening)};
    return 0;
}

Fd connectSocket(const Fd& folder, const std::string& name, int type) {
    Fd socket = newSocket(type);
    if (socket.valid() && callWithAddress(connect, socket, folder, name) != 0) {
        const int error = errno;
        socket = Fd();
        errno = error;
    }
    return socket;
}

std::optional<ucred> peerOf(int fd) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
    return peer;
}

bool isTrusted(const ucred& peer) {
    return peer.uid == geteuid() || peer.uid == 0;
}

}  // namespace sim
