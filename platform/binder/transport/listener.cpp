#include <android/log.h>
#include <binder/transport/listener.h>
#include <binder/transport/process.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace android::transport {

bool mayTalkTo(const ucred& peer, const std::string& name) {
    if (peer.uid == geteuid() || peer.uid == 0) return true;
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

// A few a turn, so that a crowd at the door does not keep those inside waiting.
void Listener::onReady(uint32_t /*events*/) {
    constexpr int kPerTurn = 16;
    for (int i = 0; i < kPerTurn; ++i) {
        int error = 0;
        sim::Fd socket = acceptOne(&error);
        if (socket.valid()) {
            welcome(std::move(socket));
        } else if (error == EAGAIN || error == EWOULDBLOCK) {
            mStarved = false;
            return;
        } else if (error != EINTR && error != ECONNABORTED) {
            return rest(error);
        }
    }
}

void Listener::welcome(sim::Fd socket) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return;
    if (!mayTalkTo(peer, mName)) return;
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
    if (full) return;
    const auto connection =
        std::make_shared<Connection>(mProcess, std::move(socket), peer, std::move(root));
    if (connection->open()) mProcess.accepted().add(connection);
}

void Listener::rest(int error) {
    if (!mStarved) {
        __android_log_print(ANDROID_LOG_ERROR, "Binder", "%s lets nobody in for now: %s",
                            mName.c_str(), strerror(error));
    }
    mStarved = true;
    Mutex::Autolock lock(mLock);
    listenForLocked(0);
    mProcess.io().rest(weak_from_this());
}

void Listener::onRested() {
    Mutex::Autolock lock(mLock);
    listenForLocked(EPOLLIN);
}

}  // namespace android::transport
