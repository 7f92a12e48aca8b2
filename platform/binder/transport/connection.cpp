#include <android/log.h>
#include <binder/transport/binder_process.h>
#include <binder/transport/connection.h>
#include <sys/epoll.h>
#include <utils/Timers.h>

#include <chrono>

namespace android::transport {

// For the notice thread: the proxies to report the death to, and the objects to release.
struct Connection::Remains {
    std::vector<sp<BpBinder>> proxies;
    std::unordered_map<uint32_t, Export> exports;
    sp<BBinder> root;
};

Connection::Connection(Process& process, sim::Fd socket, const ucred& peer, sp<BBinder> root)
    : mProcess(process),
      mPeer(peer),
      mLastCallNanos(systemTime(SYSTEM_TIME_MONOTONIC)),
      mRoot(std::move(root)),
      mSocket(std::move(socket)) {}

bool Connection::open() {
    Mutex::Autolock lock(mLock);
    mInterest = EPOLLIN;
    mWatch = mProcess.io().add(shared_from_this(), mSocket.get(), mInterest);
    if (mWatch == 0) return false;
    FrameHeader hello{};
    hello.kind = HELLO;
    hello.code = kVersion;
    sendLocked(hello, nullptr, kMaxReplyQueue);
    return true;
}

void Connection::refuse() {
    Mutex::Autolock lock(mLock);
    mEnd = WOULD_BLOCK;
    mClosed = true;
    mGone.store(true, std::memory_order_release);
}

sp<IBinder> Connection::root() {
    Mutex::Autolock lock(mLock);
    if (mClosed && mEnd == DEAD_OBJECT) return nullptr;
    return proxyLocked(0);
}

// The proxy of the other side's object; counts it as received once more.
sp<BpBinder> Connection::proxyLocked(uint32_t handle) {
    Proxy& entry = mProxies[handle];
    sp<BpBinder> proxy = entry.proxy.promote();
    if (proxy == nullptr) {
        proxy = sp<BpBinder>::make(shared_from_this(), handle);
        entry.proxy = proxy;
        entry.address = proxy.get();
    }
    ++entry.count;
    return proxy;
}

void Connection::forgetProxy(const BpBinder* proxy) {
    Mutex::Autolock lock(mLock);
    const auto entry = mProxies.find(proxy->handle());
    // When the object was received again meanwhile, a new proxy has taken over the count.
    if (entry == mProxies.end() || entry->second.address != proxy) return;
    const uint32_t count = entry->second.count;
    mProxies.erase(entry);
    if (mProxies.size() < kMaxProxies / 4 * 3) mRefusing = false;
    // Later it would be a call to an object that was given back.
    if (mLost.count(proxy->handle()) != 0) tellLostLocked();
    releaseLocked(proxy->handle(), count);
}

// Tells the other side that its object's proxy is gone. The published object is not counted.
void Connection::releaseLocked(uint32_t handle, uint32_t count) {
    if (handle == 0) return;
    FrameHeader release{};
    release.kind = RELEASE;
    release.handle = handle;
    release.code = count;
    if (sendLocked(release, nullptr, kMaxReplyQueue) == FAILED_TRANSACTION) {
        breakLocked("it does not take what is released");
    }
}

sp<BBinder> Connection::localLocked(uint32_t handle) {
    if (handle == 0) return mRoot;
    const auto entry = mExports.find(handle);
    return entry != mExports.end() ? entry->second.object : nullptr;
}

status_t Connection::transact(uint32_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                              uint32_t flags) {
    const bool oneWay = (flags & IBinder::FLAG_ONEWAY) != 0;
    const status_t sendable = checkSendable(data);
    if (sendable != OK) return sendable;

    PendingCall call;
    {
        Mutex::Autolock lock(mLock);
        FrameHeader header{};
        header.kind = CALL;
        header.flags = flags & IBinder::FLAG_ONEWAY;
        header.callId = oneWay ? 0 : ++mLastCall;
        header.handle = handle;
        header.code = code;
        const status_t status = sendCallLocked(header, data);
        if (status == DEAD_OBJECT) return endLocked();
        if (oneWay || status != OK) return status;
        mPending.emplace(header.callId, &call);
        updateInterestLocked();
        awaitReplyLocked(header.callId, call);
    }
    if (reply != nullptr) *reply = std::move(call.result);
    return call.status;
}

status_t Connection::end() {
    Mutex::Autolock lock(mLock);
    return endLocked();
}

// Waits for the end of a connection that died in its handshake: a refusal may be unread, and the
// loop reads it soon.
status_t Connection::endLocked() {
    constexpr nsecs_t kPatience = 1000000000;
    while (!mHandshakeDone && !mClosed) {
        if (mDrained.waitRelative(mLock, kPatience) != OK) break;
    }
    return mEnd;
}

// Past the process's limit the connection is given up: a late reply would answer no call.
void Connection::awaitReplyLocked(uint64_t callId, PendingCall& call) {
    using Clock = std::chrono::steady_clock;
    const std::chrono::nanoseconds limit(mProcess.callTimeoutNanos());
    const Clock::time_point end = Clock::now() + limit;
    while (!call.done) {
        if (limit.count() == 0) {
            call.answered.wait(mLock);
            continue;
        }
        const std::chrono::nanoseconds left = end - Clock::now();
        if (left.count() > 0) {
            call.answered.waitRelative(mLock, left.count());
            continue;
        }
        call.status = TIMED_OUT;
        mPending.erase(callId);
        return breakLocked("it does not answer in time");
    }
}

void Connection::begun(size_t charge) {
    Mutex::Autolock lock(mLock);
    mBacklog -= charge;
    if (mBacklog > kPauseBacklog / 2) return;
    mPaused = mDropping = false;
    updateInterestLocked();
}

void Connection::reply(uint64_t callId, status_t status, const Parcel& parcel) {
    FrameHeader header{};
    header.kind = REPLY;
    header.callId = callId;
    header.status = status;
    if (status == OK) header.status = checkSendable(parcel);
    // A call that failed has no results.
    const Parcel* const results = header.status == OK ? &parcel : nullptr;
    Mutex::Autolock lock(mLock);
    --mUnanswered;
    if (sendLocked(header, results, kMaxReplyQueue) == FAILED_TRANSACTION) {
        breakLocked("it does not take its replies");
    }
}

// Ends the connection from any thread: its socket becomes readable and the loop tears it down.
void Connection::breakLocked(const char* why) {
    if (mBroken || mClosed) return;
    logEnd(why);
    mBroken = true;
    mGone.store(true, std::memory_order_release);
    shutdown(mSocket.get(), SHUT_RDWR);
    updateInterestLocked();
}

bool Connection::readingLocked() const {
    return mBroken || !mPaused || !mPending.empty();
}

void Connection::updateInterestLocked() {
    if (mClosed) return;
    const uint32_t interest =
        (readingLocked() ? uint32_t{EPOLLIN} : 0u) | (mOut.empty() ? 0u : uint32_t{EPOLLOUT});
    mProcess.io().change(mWatch, mSocket.get(), mInterest, interest);
    mInterest = interest;
}

void Connection::logEnd(const char* why) const {
    __android_log_print(ANDROID_LOG_WARN, "Binder", "connection to process %d ended: %s",
                        static_cast<int>(mPeer.pid), why);
}

bool Connection::ended() {
    Mutex::Autolock lock(mLock);
    return mClosed;
}

bool Connection::endWithoutHandshake() {
    if (!mHandshakeDone) onReady(EPOLLIN);  // a handshake that has arrived counts
    if (mHandshakeDone) return false;
    if (!ended()) logEnd("it has not greeted and others want in");
    tearDown();
    return true;
}

int64_t Connection::idleSince() {
    Mutex::Autolock lock(mLock);
    const bool idle = mUnanswered == 0 && mBacklog == 0 && mPending.empty() && mProxies.empty() &&
                      mOut.empty() && mExports.empty();
    return idle ? mLastCallNanos : INT64_MAX;
}

bool Connection::endIdle(int64_t since) {
    onReady(EPOLLIN);  // a call that has arrived counts
    if (idleSince() > since) return false;
    if (!ended()) logEnd("it was idle and others want in");
    tearDown();
    return true;
}

void Connection::tearDown() {
    const auto remains = std::make_shared<Remains>();
    {
        Mutex::Autolock lock(mLock);
        if (mClosed) return;
        mClosed = true;
        mGone.store(true, std::memory_order_release);
        logLostLocked("is disconnected");
        mProcess.io().remove(mWatch, mSocket.get());
        mSocket = sim::Fd();
        mIn = ByteQueue();
        mOut = ByteQueue();
        mDrained.broadcast();
        for (const auto& entry : mPending) {
            entry.second->done = true;
            entry.second->status = mEnd;
            entry.second->answered.signal();
        }
        mPending = {};
        for (auto& entry : mProxies) {
            sp<BpBinder> proxy = entry.second.proxy.promote();
            if (proxy != nullptr) remains->proxies.push_back(std::move(proxy));
        }
        mProxies = {};
        mExportHandles = {};
        remains->exports.swap(mExports);
        remains->root = std::move(mRoot);
    }
    mProcess.notices().post([remains] {
        for (const auto& proxy : remains->proxies) proxy->reportDeath();
        remains->proxies.clear();
        remains->exports.clear();
        remains->root.clear();
    });
    mProcess.io().retryNow();
}

}  // namespace android::transport
