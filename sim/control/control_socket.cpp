#include "sim/control/control_socket.h"

#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <stdexcept>

namespace sim {
namespace {

[[noreturn]] void fail(const std::string& directory, const std::string& why) {
    throw std::runtime_error(directory + "/control: " + why);
}

Fd openDirectory(const std::string& directory) {
    Fd fd(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!fd.valid()) fail(directory, strerror(errno));
    return fd;
}

Fd newSocket(int flags) {
    return Fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
}

sockaddr_un addressIn(const Fd& directory, const char* name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d/%s", directory.get(),
             name);
    return address;
}

Fd claim(const std::string& path, const Fd& directory) {
    Fd lock(
        openat(directory.get(), "control.lock", O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (lock.valid() && flock(lock.get(), LOCK_EX | LOCK_NB) == 0) return lock;
    fail(path, errno == EWOULDBLOCK ? "is served already" : strerror(errno));
}

}  // namespace

// The socket appears under its name by a rename, listening already.
ServedControl listenForControl(const std::string& runDirectory) {
    constexpr int kBacklog = 64;
    const Fd directory = openDirectory(runDirectory);
    Fd lock = claim(runDirectory, directory);
    unlinkat(directory.get(), "control.new", 0);
    const sockaddr_un address = addressIn(directory, "control.new");
    Fd listening = newSocket(SOCK_NONBLOCK);
    if (listening.valid() &&
        bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        fchmodat(directory.get(), "control.new", 0600, 0) == 0 &&
        listen(listening.get(), kBacklog) == 0 &&
        renameat(directory.get(), "control.new", directory.get(), "control") == 0) {
        return {std::move(lock), std::move(listening)};
    }
    fail(runDirectory, strerror(errno));
}

Fd connectToControl(const std::string& runDirectory) {
    const Fd directory = openDirectory(runDirectory);
    const sockaddr_un address = addressIn(directory, "control");
    Fd fd = newSocket(0);
    if (fd.valid() &&
        connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
        if (isTrustedPeer(fd.get())) return fd;
        fail(runDirectory, "is served by another user");
    }
    const bool nobody = errno == ENOENT || errno == ECONNREFUSED;
    fail(runDirectory, nobody ? "nobody serves this phone" : strerror(errno));
}

bool isTrustedPeer(int fd) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
    return peer.uid == geteuid() || peer.uid == 0;
}

std::string joinTexts(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts) {
        if (&text != &texts.front()) joined += '\0';
        joined += text;
    }
    return joined;
}

std::vector<std::string> splitTexts(const std::string& joined) {
    std::vector<std::string> texts;
    size_t begin = 0;
    for (size_t end; (end = joined.find('\0', begin)) != std::string::npos; begin = end + 1)
        texts.push_back(joined.substr(begin, end - begin));
    texts.push_back(joined.substr(begin));
    return texts;
}

}  // namespace sim
