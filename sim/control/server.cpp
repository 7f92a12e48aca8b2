#include "sim/control/server.h"

#include <poll.h>
#include <pthread.h>
#include <string.h>
#include <sys/socket.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <stdexcept>
#include <thread>

#include "sim/base/unix_socket.h"
#include "sim/userspace/log.h"

namespace sim {
namespace {

constexpr char kTag[] = "sim_control";
constexpr int kRetryMillis = 20;
constexpr int kFullMillis = 100;          // between looks for an idle connection
constexpr std::chrono::seconds kIdle{1};  // a client asks at once when it has come

std::deque<std::string> datagramsOf(const Reply& reply) {
    std::vector<std::string> texts{reply.ok ? "ok" : kErrorWords[static_cast<int>(reply.error)]};
    texts.insert(texts.end(), reply.texts.begin(), reply.texts.end());
    const std::string joined = joinTexts(texts);
    if (joined.size() > kMaxReplyBytes) return datagramsOf({false, {"the answer is too long"}});
    std::deque<std::string> datagrams;
    for (size_t begin = 0; begin < joined.size(); begin += kMaxRequestBytes)
        datagrams.push_back('+' + joined.substr(begin, kMaxRequestBytes));
    datagrams.back()[0] = '.';
    return datagrams;
}

PublishedSocket publishControl(const std::string& runDirectory) {
    PublishedSocket socket;
    const Fd directory = openControlDirectory(runDirectory);
    if (int error = publishSocket(directory, "control", SOCK_SEQPACKET, socket))
        failControl(runDirectory, error == EWOULDBLOCK ? "is served already" : strerror(error));
    return socket;
}

}  // namespace

// The event loop of the control socket (thread "sim_control"); never blocks on one client.
class ControlServer {
  public:
    ControlServer(Control& control, Log& log, PublishedSocket socket)
        : mControl(control), mLog(log), mSocket(std::move(socket)), mRequest(kMaxRequestBytes) {}

    void run() {
        pthread_setname_np(pthread_self(), "sim_control");
        for (;;) turn();
    }

  private:
    struct Connection {
        Fd fd;
        // The next request is read once `pending` and `unsent` are empty.
        Control::Arguments pending;                   // the request to be tried again
        std::chrono::steady_clock::time_point asked;  // when it came; before it, the client
        std::deque<std::string> unsent;               // datagrams of its reply

        // The events to poll for; a hang-up is reported in any case.
        short events() const {
            if (!unsent.empty()) return POLLOUT;
            return pending.empty() ? POLLIN : 0;
        }
        // Whether nobody waits for an answer here, or no longer. A request that was not taken yet
        // counts.
        bool idle() const {
            const auto since = std::chrono::steady_clock::now() - asked;
            if (!pending.empty() || !unsent.empty()) return since > kReplyTimeout;
            char byte;
            return since > kIdle && recv(fd.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) <= 0;
        }
    };

    // Closes the oldest idle connection when all places are taken; false when there is none.
    bool makeRoom() {
        if (mConnections.size() < Control::kMaxConnections) return true;
        const auto idle = std::find_if(mConnections.begin(), mConnections.end(),
                                       [](const Connection& each) { return each.idle(); });
        if (idle != mConnections.end()) mConnections.erase(idle);
        return idle != mConnections.end();
    }

    void turn() {
        std::vector<pollfd> polled{{mFull ? -1 : mSocket.listening.get(), POLLIN, 0}};
        int timeout = mFull ? kFullMillis : -1;
        for (const Connection& connection : mConnections) {
            polled.push_back({connection.fd.get(), connection.events(), 0});
            if (!connection.pending.empty()) timeout = kRetryMillis;
        }
        if (poll(polled.data(), polled.size(), timeout) < 0) return;
        for (size_t i = polled.size(); --i > 0;) {
            if (!serve(mConnections[i - 1], polled[i].revents))
                mConnections.erase(mConnections.begin() + static_cast<ptrdiff_t>(i - 1));
        }
        if (polled[0].revents != 0 || mFull) accept();
    }

    // New clients wait in the kernel while none of those accepted is idle.
    void accept() {
        mFull = !makeRoom();
        if (mFull) return;
        Fd fd(accept4(mSocket.listening.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!fd.valid()) {
            // Probably out of descriptors: pauses, as poll() would report the client again at once.
            if (errno != EAGAIN) poll(nullptr, 0, 100);
        } else if (const auto peer = peerOf(fd.get()); !peer || !isTrusted(*peer)) {
            mLog.write(kWarn, kTag, "a process of another user is refused");
        } else {
            mConnections.push_back({std::move(fd), {}, std::chrono::steady_clock::now(), {}});
        }
    }

    // Goes on with a connection's request or reply; false when the connection is over.
    bool serve(Connection& connection, short events) {
        if (!connection.pending.empty()) return events == 0 && execute(connection);
        if (events == 0) return true;
        return connection.unsent.empty() ? take(connection) : answer(connection);
    }

    bool take(Connection& connection) {
        const int fd = connection.fd.get();
        const ssize_t got = recv(fd, mRequest.data(), mRequest.size(), MSG_TRUNC);
        if (got < 0) return errno == EINTR || errno == EAGAIN;
        if (got == 0) return false;
        const size_t size = static_cast<size_t>(got);
        if (size > mRequest.size() || mRequest[0] == '\0') {
            mLog.write(kWarn, kTag,
                       "no request: " + std::to_string(size) + " bytes; the connection is closed");
            return false;
        }
        connection.pending = splitTexts({mRequest.data(), size});
        connection.asked = std::chrono::steady_clock::now();
        if (!execute(connection)) return false;
        // If it is not taken, the client's own limit holds.
        if (!connection.pending.empty()) send(fd, "~", 1, MSG_NOSIGNAL | MSG_DONTWAIT);
        return true;
    }

    bool execute(Connection& connection) {
        Reply reply = mControl.run(connection.pending);
        if (reply.retryFor > std::chrono::steady_clock::now() - connection.asked) return true;
        if (reply.retryFor.count() > 0) reply.error = Reply::Error::kTimeout;
        connection.pending.clear();
        connection.unsent = datagramsOf(reply);
        return answer(connection);
    }

    static bool answer(Connection& connection) {
        while (!connection.unsent.empty()) {
            const std::string& datagram = connection.unsent.front();
            if (send(connection.fd.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL) < 0)
                return errno == EINTR || errno == EAGAIN;
            connection.unsent.pop_front();
        }
        return true;
    }

    Control& mControl;
    Log& mLog;
    const PublishedSocket mSocket;
    std::vector<char> mRequest;
    std::deque<Connection> mConnections;  // the oldest first
    bool mFull = false;
};

void Control::add(const std::string& name, Command command) {
    Lock lock(mMutex);
    mCommands[name] = std::move(command);
}

bool Control::serve() {
    try {
        auto server = std::make_shared<ControlServer>(*this, mLog, publishControl(mDirectory));
        std::thread([server] { server->run(); }).detach();
        Lock lock(mMutex);
        return mServing = true;
    } catch (const std::exception& failure) {
        mLog.write(kError, kTag, failure.what());
        return false;
    }
}

// Removes no other process's socket: this one holds the name's lock until it ends.
void Control::withdraw() {
    Lock lock(mMutex);
    if (mServing) unlink((mDirectory + "/control").c_str());
    mServing = false;
}

Reply Control::run(const Arguments& words) {
    Command command;
    {
        Lock lock(mMutex);
        const auto found = mCommands.find(words[0]);
        if (found != mCommands.end()) command = found->second;
    }
    try {
        if (!command) throw std::invalid_argument("there is no command '" + words[0] + "'");
        return command({words.begin() + 1, words.end()});
    } catch (const std::invalid_argument& wrong) {
        return {false, {wrong.what()}, {}, Reply::Error::kUsage};
    } catch (const std::exception& failure) {
        return {false, {failure.what()}};
    }
}

}  // namespace sim
