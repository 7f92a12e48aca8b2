#include <android/log.h>
#include <binder/transport/binder_process.h>
#include <binder/transport/listener.h>
#include <sim/base/unix_socket.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace android::transport {

namespace {

size_t maxConnections() {
    constexpr size_t kMax = AcceptedConnections::kMaxConnections;
    rlimit descriptors{};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) != 0) return kMax;
    return static_cast<size_t>(std::min<rlim_t>(kMax, descriptors.rlim_cur / 4));
}

}  // namespace

void AcceptedConnections::forgetEnded() {
    const auto ended = [](const std::weak_ptr<Connection>& entry) {
        const auto connection = entry.lock();
        return connection == nullptr || connection->ended();
    };
    mConnections.erase(std::remove_if(mConnections.begin(), mConnections.end(), ended),
                       mConnections.end());
}

bool AcceptedConnections::makeRoom() {
    if (mConnections.size() < maxConnections()) return true;
    forgetEnded();
    return mConnections.size() < maxConnections() || endSilent() || endIdle();
}

bool AcceptedConnections::endSilent() {
    for (const auto& entry : mConnections) {
        const auto connection = entry.lock();
        if (connection != nullptr && connection->endWithoutHandshake()) return true;
    }
    return false;
}

bool AcceptedConnections::endIdle() {
    int64_t longest = INT64_MAX;
    std::shared_ptr<Connection> idlest;
    for (const auto& entry : mConnections) {
        const auto connection = entry.lock();
        const int64_t since = connection != nullptr ? connection->idleSince() : INT64_MAX;
        if (since >= longest) continue;
        longest = since;
        idlest = connection;
    }
    if (idlest == nullptr || systemTime(SYSTEM_TIME_MONOTONIC) - longest < kIdleNanos) return false;
    return idlest->endIdle(longest) || endIdle();  // when it has just called, the next one
}

namespace {

// A client that has sent nothing yet reads this before the end of the connection.
void sendRefusal(const sim::Fd& socket) {
    FrameHeader refusal{};
    refusal.magic = kMagic;
    refusal.kind = HELLO;
    refusal.code = kVersion;
    refusal.status = WOULD_BLOCK;
    send(socket.get(), &refusal, sizeof(refusal), MSG_DONTWAIT | MSG_NOSIGNAL);
}

}  // namespace

bool mayTalkTo(const ucred& peer, const std::string& name) {
    if (sim::isTrusted(peer)) return true;
    __android_log_print(ANDROID_LOG_WARN, "Binder", "process %d of user %u is refused at %s",
                        static_cast<int>(peer.pid), static_cast<unsigned>(peer.uid), name.c_str());
    return false;
}

Listener::Listener(Process& process, sim::Fd socket, std::string name, sp<BBinder> root)
    : mProcess(process),
      mName(std::move(name)),
      mRoot(std::move(root)),
      mSocket(std::move(socket)) {}

bool Listener::open() {
    Mutex::Autolock lock(mLock);
    mInterest = EPOLLIN;
    mWatch = mProcess.io().add(shared_from_this(), mSocket.get(), mInterest);
    return mWatch != 0;
}

void Listener::close() {
    sp<BBinder> last;
    Mutex::Autolock lock(mLock);
    if (!mSocket.valid()) return;
    last = std::move(mRoot);
    mProcess.io().remove(mWatch, mSocket.get());
    mSocket = sim::Fd();
}

void Listener::listenForLocked(uint32_t interest) {
    if (!mSocket.valid()) return;
    mProcess.io().change(mWatch, mSocket.get(), mInterest, interest);
    mInterest = interest;
}

sim::Fd Listener::acceptOne(int* error) {
    Mutex::Autolock lock(mLock);
    *error = EAGAIN;
    if (!mSocket.valid()) return sim::Fd();
    sim::Fd socket(accept4(mSocket.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    *error = errno;
    return socket;
}

// Accepts a few per turn, so that a crowd of new clients does not starve the accepted ones.
void Listener::onReady(uint32_t /*events*/) {
    constexpr int kMaxAccepts = 16;
    for (int i = 0; i < kMaxAccepts; ++i) {
        int error = 0;
        sim::Fd socket = acceptOne(&error);
        if (socket.valid()) {
            welcome(std::move(socket));
        } else if (error == EAGAIN || error == EWOULDBLOCK) {
            mBackedOff = false;
            return;
        } else if (error != EINTR && error != ECONNABORTED) {
            return backOff(error);
        }
    }
}

void Listener::welcome(sim::Fd socket) {
    const std::optional<ucred> peer = sim::peerOf(socket.get());
    if (!peer || !mayTalkTo(*peer, mName)) return;
    sp<BBinder> root;
    {
        Mutex::Autolock lock(mLock);
        root = mRoot;
    }
    if (root == nullptr) return;
    const bool full = !mProcess.accepted().makeRoom();
    if (full && !mFull) {
        __android_log_print(ANDROID_LOG_ERROR, "Binder",
                            "%s refuses more clients: all places taken", mName.c_str());
    }
    mFull = full;
    if (full) return sendRefusal(socket);
    const auto connection =
        std::make_shared<Connection>(mProcess, std::move(socket), *peer, std::move(root));
    if (connection->open()) mProcess.accepted().add(connection);
}

void Listener::backOff(int error) {
    if (!mBackedOff) {
        __android_log_print(ANDROID_LOG_ERROR, "Binder", "%s lets nobody in for now: %s",
                            mName.c_str(), strerror(error));
    }
    mBackedOff = true;
    Mutex::Autolock lock(mLock);
    listenForLocked(0);
    mProcess.io().retryLater(weak_from_this());
}

void Listener::onRetry() {
    Mutex::Autolock lock(mLock);
    listenForLocked(EPOLLIN);
}

}  // namespace android::transport
