#include <android/log.h>
#include <binder/transport/binder_process.h>
#include <binder/transport/call_pool.h>
#include <binder/transport/connection.h>
#include <sys/epoll.h>
#include <utils/Timers.h>

#include <cerrno>
#include <cstring>

namespace android::transport {

namespace {

// A call's share of the backlog: its bytes and the approximate size of the objects made for it.
size_t chargeOf(const Frame& frame) {
    constexpr size_t kOverhead = 256;
    return frame.header.size + kOverhead * (1 + frame.objects.size());
}

std::vector<uint8_t> bytesOf(const Frame& frame) {
    return std::vector<uint8_t>(frame.data, frame.data + frame.dataSize);
}

}  // namespace

void Connection::onReady(uint32_t events) {
    bool readable = (events & ~uint32_t{EPOLLOUT}) != 0;
    bool broken = false;
    {
        Mutex::Autolock lock(mLock);
        if (mClosed) return;
        // While reading is paused, a hang-up ends the sending alone: unread calls stay.
        if (!mOut.empty()) flushLocked();
        broken = mBroken;
        readable = readable && readingLocked();
    }
    if (broken) return tearDown();
    if (readable) receive();
}

// Reads once per turn, so that no connection starves the others.
void Connection::receive() {
    constexpr size_t kChunk = 64u << 10;
    int socket;
    {
        Mutex::Autolock lock(mLock);
        socket = mSocket.get();  // closed on this thread only
    }
    const ssize_t count = recv(socket, mIn.room(kChunk), kChunk, MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return;
    if (count <= 0) {
        if (!mIn.empty()) logEnd("the other side ended within a frame");
        return tearDown();
    }
    mIn.filled(static_cast<size_t>(count));
    if (const char* fault = consumeFrames()) {
        logEnd(fault);
        tearDown();
    }
}

const char* Connection::consumeFrames() {
    while (mIn.size() >= sizeof(FrameHeader)) {
        FrameHeader header;
        memcpy(&header, mIn.front(), sizeof(header));
        if (const char* fault = headerFault(header)) return fault;
        if (mIn.size() - sizeof(header) < header.size) return nullptr;
        Frame frame;
        if (const char* fault = parseFrame(header, mIn.front() + sizeof(header), &frame)) {
            return fault;
        }
        if (const char* fault = take(frame)) return fault;
        mIn.consume(sizeof(header) + header.size);
    }
    return nullptr;
}

const char* Connection::take(const Frame& frame) {
    if (!mHandshakeDone) {
        if (frame.header.kind != HELLO || frame.header.code != kVersion)
            return "no greeting of our version";
        if (frame.header.status != OK) return refused();
        mHandshakeDone = true;
        return nullptr;
    }
    switch (frame.header.kind) {
        case CALL:
            return takeCall(frame);
        case REPLY:
            return takeReply(frame);
        case RELEASE:
            return takeRelease(frame);
        default:
            return "a second greeting";
    }
}

const char* Connection::refused() {
    Mutex::Autolock lock(mLock);
    mEnd = WOULD_BLOCK;
    return "it takes no more clients now";
}

const char* Connection::takeCall(const Frame& frame) {
    mLastCallNanos = systemTime(SYSTEM_TIME_MONOTONIC);
    IncomingCall call;
    std::vector<Parcel::Object> objects;
    bool keep = false;
    {
        Mutex::Autolock lock(mLock);
        call.target = localLocked(frame.header.handle);
        if (call.target == nullptr) return "a call to an object it was not given";
        if (const char* fault = adoptLocked(frame, &objects)) return fault;
        call.charge = chargeOf(frame);
        keep = objects.size() == frame.objects.size() && noteBacklogLocked(call.charge);
        if (frame.header.callId != 0) ++mUnanswered;
    }
    if (!keep) {
        if (frame.header.callId != 0) reply(frame.header.callId, FAILED_TRANSACTION, Parcel());
        mProcess.notices().post([objects = std::move(objects), target = std::move(call.target)] {});
        return nullptr;
    }
    call.from = shared_from_this();
    call.code = frame.header.code;
    call.flags = frame.header.flags;
    call.id = frame.header.callId;
    call.data.adopt(bytesOf(frame), std::move(objects));
    mProcess.calls().post(std::move(call));
    return nullptr;
}

// Adds the charge of a call; false when the backlog has no room for it.
bool Connection::noteBacklogLocked(size_t charge) {
    if (mBacklog + charge > kMaxBacklog) {
        if (!mDropping) {
            __android_log_print(ANDROID_LOG_WARN, "Binder",
                                "calls of process %d are dropped: too many wait",
                                static_cast<int>(mPeer.pid));
        }
        mDropping = true;
        return false;
    }
    mBacklog += charge;
    if (mBacklog > kPauseBacklog && !mPaused) {
        mPaused = true;
        updateInterestLocked();
    }
    return true;
}

const char* Connection::takeReply(const Frame& frame) {
    std::vector<Parcel::Object> objects;
    Mutex::Autolock lock(mLock);
    const auto entry = mPending.find(frame.header.callId);
    if (entry == mPending.end()) return "a reply to no call";
    if (const char* fault = adoptLocked(frame, &objects)) return fault;
    PendingCall& call = *entry->second;
    if (objects.size() == frame.objects.size()) {
        call.result.adopt(bytesOf(frame), std::move(objects));
        call.status = frame.header.status;
    } else {
        call.status = FAILED_TRANSACTION;
        mProcess.notices().post([objects = std::move(objects)] {});
    }
    call.done = true;
    call.answered.signal();
    mPending.erase(entry);
    updateInterestLocked();
    return nullptr;
}

const char* Connection::takeRelease(const Frame& frame) {
    sp<BBinder> last;
    {
        Mutex::Autolock lock(mLock);
        const auto entry = mExports.find(frame.header.handle);
        const uint32_t count = frame.header.code;
        if (entry == mExports.end() || count == 0 || count > entry->second.count) {
            return "a release of what it was not given";
        }
        entry->second.count -= count;
        if (entry->second.count > 0) return nullptr;
        last = std::move(entry->second.object);
        mExportHandles.erase(last.get());
        mExports.erase(entry);
    }
    mProcess.notices().post([last = std::move(last)] {});
    return nullptr;
}

// Whether the other side may give one more object; counts it.
bool Connection::hasRoomForObjectLocked() {
    if (mProxies.size() >= kMaxProxies) {
        if (!mRefusing) {
            __android_log_print(ANDROID_LOG_WARN, "Binder",
                                "calls of process %d with objects fail: it has given %zu",
                                mPeer.pid, kMaxProxies);
        }
        mRefusing = true;
        return false;
    }
    if (!mGiver) mGiver = sim::ProcessId::of(mPeer.pid).value_or(sim::ProcessId{mPeer.pid, 0});
    return mProcess.quota().take(*mGiver);
}

// The objects of a frame: our own, or proxies of the other side's; fewer when there is no room for
// all. On a fault the caller releases those found so far, without the lock.
const char* Connection::adoptLocked(const Frame& frame, std::vector<Parcel::Object>* objects) {
    for (const ObjectEntry& entry : frame.objects) {
        sp<IBinder> object;
        if (entry.owner == RECEIVER) {
            object = localLocked(entry.handle);
            if (object == nullptr) return "an object it was not given";
        } else {
            // Only the publishing side has an object 0.
            if (entry.handle == 0 && mRoot != nullptr) return "an object it cannot have";
            const auto known = mProxies.find(entry.handle);
            if (known == mProxies.end() && !hasRoomForObjectLocked()) {
                releaseLocked(entry.handle, 1);
                continue;
            }
            if (known != mProxies.end() && known->second.count == UINT32_MAX)
                return "an object given too often";
            object = proxyLocked(entry.handle);
        }
        objects->push_back(Parcel::Object{entry.offset, std::move(object)});
    }
    return nullptr;
}

}  // namespace android::transport
