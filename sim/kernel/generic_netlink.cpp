#include "sim/kernel/generic_netlink.h"

#include <errno.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <pthread.h>
#include <string.h>

#include <algorithm>
#include <thread>

#include "sim/kernel/genl_messages.h"

namespace sim {
namespace {

constexpr std::string_view kFamilyName = "aud_knl_nt";
constexpr uint8_t kRegister = 1;

int refuse(int error) {
    errno = error;
    return -1;
}

// Copies a netlink address to `read`; 0, or the errno for any other address.
int readAddress(const sockaddr* address, socklen_t length, sockaddr_nl& read) {
    if (address == nullptr) return EFAULT;
    if (length < sizeof(sa_family_t)) return EINVAL;
    if (address->sa_family != AF_NETLINK) return EAFNOSUPPORT;
    if (length < sizeof(read)) return EINVAL;
    memcpy(&read, address, sizeof(read));
    return 0;
}

}  // namespace

int GenericNetlink::socket(int domain, int type, int protocol) {
    if (domain != AF_NETLINK) return refuse(EAFNOSUPPORT);
    if (mWorkstation) return ::socket(AF_NETLINK, type, protocol);
    constexpr int kFlags = SOCK_CLOEXEC | SOCK_NONBLOCK;
    const int kind = type & ~kFlags;
    if (kind != SOCK_RAW && kind != SOCK_DGRAM) return refuse(ESOCKTNOSUPPORT);
    if (protocol != NETLINK_GENERIC) return refuse(EPROTONOSUPPORT);
    auto made = std::make_shared<NetlinkSocket>(type & kFlags);
    if (!made->valid()) return -1;
    Lock lock(mMutex);
    mPorts.push_front({made, made->processEnd(), 0, false});
    try {
        std::thread([this, made] { serve(made); }).detach();
    } catch (const std::system_error&) {
        mPorts.pop_front();
        return refuse(ENOMEM);
    }
    return made->takeProcessEnd();
}

int GenericNetlink::bind(int fd, const sockaddr* address, socklen_t length) {
    sockaddr_nl wanted{};
    if (int error = readAddress(address, length, wanted)) return refuse(error);
    if (mWorkstation) return ::bind(fd, address, length);
    Lock lock(mMutex);
    Port* const port = find(fd);
    if (port == nullptr) return refuse(EBADF);
    if (wanted.nl_groups != 0) return refuse(EOPNOTSUPP);  // nothing here is sent to a group
    const uint32_t id = wanted.nl_pid != 0 ? wanted.nl_pid : freeId();
    if (port->id != 0) return port->id == wanted.nl_pid ? 0 : refuse(EINVAL);
    if (isTaken(id)) return refuse(EADDRINUSE);
    port->id = id;
    return 0;
}

ssize_t GenericNetlink::sendto(int fd, std::string_view bytes, int flags, const sockaddr* address,
                               socklen_t length) {
    sockaddr_nl to{};
    if (int error = readAddress(address, length, to)) return refuse(error);
    if (mWorkstation) return ::sendto(fd, bytes.data(), bytes.size(), flags, address, length);
    if (to.nl_pid != 0) return refuse(ECONNREFUSED);
    {
        Lock lock(mMutex);
        if (find(fd) == nullptr) return refuse(ENOTSOCK);
        if (!mSendResults.empty()) {
            const ssize_t result = mSendResults.front();
            mSendResults.pop_front();
            if (result < 0) return refuse(static_cast<int>(-result));
            bytes = bytes.substr(0, static_cast<size_t>(result));
            if (result == 0) {
                errno = EAGAIN;
                return 0;
            }
        }
    }
    return ::send(fd, bytes.data(), bytes.size(), flags);
}

bool GenericNetlink::mayReceive(int fd) {
    Lock lock(mMutex);
    const Port* const port = find(fd);
    const int error = port != nullptr ? port->socket->takeError() : 0;
    if (error != 0) errno = error;
    return error == 0;
}

GenericNetlink::Port* GenericNetlink::find(int fd) {
    for (Port& port : mPorts) {
        if (port.fd == fd) return &port;
    }
    return nullptr;
}

GenericNetlink::Port* GenericNetlink::find(const NetlinkSocket& socket) {
    for (Port& port : mPorts) {
        if (port.socket.get() == &socket) return &port;
    }
    return nullptr;
}

// Asks the socket itself, since its thread may notice the close later.
bool GenericNetlink::isTaken(uint32_t id) {
    return std::any_of(mPorts.begin(), mPorts.end(),
                       [&](const Port& port) { return port.id == id && !port.socket->closed(); });
}

uint32_t GenericNetlink::freeId() {
    uint32_t id = static_cast<uint32_t>(getpid());
    for (uint32_t other = UINT32_MAX - 4096; isTaken(id); --other) id = other;
    return id;
}

void GenericNetlink::serve(const std::shared_ptr<NetlinkSocket>& socket) {
    pthread_setname_np(pthread_self(), "sim_netlink");
    std::string datagram;
    while (socket->receive(&datagram)) answerAll(*socket, datagram);
    Lock lock(mMutex);
    mPorts.erase(std::find_if(mPorts.begin(), mPorts.end(),
                              [&](const Port& port) { return port.socket == socket; }));
}

void GenericNetlink::answerAll(NetlinkSocket& socket, const std::string& datagram) {
    Lock lock(mMutex);
    std::string_view rest = datagram;
    while (const auto message = takeMessage(&rest)) answer(*find(socket), *message);
    mReceived.push_back(datagram);
    if (mReceived.size() > kMaxHistory) mReceived.pop_front();
    mChanged.notifyAll();
}

void GenericNetlink::answer(Port& port, const GenlMessage& message) {
    int error = 0;
    if ((message.flags & NLM_F_REQUEST) != 0 && message.type >= NLMSG_MIN_TYPE) {
        error = message.type == kControllerId ? control(port, message)
                                              : registerWithModule(port, message);
    }
    if (error != 0 || (message.flags & NLM_F_ACK) != 0)
        port.socket->push(errorReply(message, error, port.id));
}

int GenericNetlink::control(Port& port, const GenlMessage& message) {
    if (!message.hasGenlHeader) return -EINVAL;
    if (message.cmd != CTRL_CMD_GETFAMILY) return -EOPNOTSUPP;
    const auto name = attributeOf(message, CTRL_ATTR_FAMILY_NAME);
    const size_t end = name ? name->substr(0, GENL_NAMSIZ).find('\0') : std::string_view::npos;
    if (end == std::string_view::npos) return -EINVAL;
    if (mAnswer == Answer::kNoFamily || name->substr(0, end) != kFamilyName) return -ENOENT;
    if (mAnswer == Answer::kNothing) return 0;
    port.socket->push(familyReply(kFamilyName, kFamilyId, message.seq, port.id));
    return 0;
}

// Registers the port with the audio module; a success has no answer of its own.
int GenericNetlink::registerWithModule(Port& port, const GenlMessage& message) {
    if (mAnswer == Answer::kNoFamily || message.type != kFamilyId) return -ENOENT;
    if (!message.hasGenlHeader) return -EINVAL;
    if (message.cmd != kRegister) return -EOPNOTSUPP;
    if (!attributeOf(message, 1)) return -EINVAL;
    port.registered = true;
    return 0;
}

void GenericNetlink::setAnswer(Answer answer) {
    Lock lock(mMutex);
    mAnswer = answer;
}

void GenericNetlink::setSendResults(std::deque<ssize_t> results) {
    Lock lock(mMutex);
    mSendResults = std::move(results);
}

GenericNetlink::Pushed GenericNetlink::push(int32_t cmd, std::string_view text) {
    Lock lock(mMutex);
    return pushTo(true, audioPacket(kFamilyId, cmd, text));
}

GenericNetlink::Pushed GenericNetlink::pushRaw(std::string_view bytes) {
    Lock lock(mMutex);
    return pushTo(false, bytes);
}

GenericNetlink::Pushed GenericNetlink::pushTo(bool registeredOnly, std::string_view bytes) {
    Pushed pushed = Pushed::kNobody;
    for (const Port& port : mPorts) {
        if ((registeredOnly && !port.registered) || port.socket->closed()) continue;
        const bool lost = !port.socket->push(bytes);
        pushed = lost || pushed == Pushed::kLost ? Pushed::kLost : Pushed::kQueued;
    }
    return pushed;
}

std::vector<std::string> GenericNetlink::received() {
    Lock lock(mMutex);
    return {mReceived.begin(), mReceived.end()};
}

bool GenericNetlink::waitReceived(size_t count) {
    Lock lock(mMutex);
    return mChanged.waitFor(mMutex, std::chrono::seconds(30),
                            [&]() SIM_REQUIRES(mMutex) { return mReceived.size() >= count; });
}

bool GenericNetlink::hasRegistered() const {
    return std::any_of(mPorts.begin(), mPorts.end(),
                       [](const Port& port) { return port.registered && !port.socket->closed(); });
}

bool GenericNetlink::waitRegistered(std::chrono::seconds timeout) {
    Lock lock(mMutex);
    return mChanged.waitFor(mMutex, timeout,
                            [this]() SIM_REQUIRES(mMutex) { return hasRegistered(); });
}

}  // namespace sim
