#include <android/log.h>
#include <binder/transport/connection.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <vector>

namespace android::transport {

namespace {

size_t frameSize(const Parcel* parcel) {
    if (parcel == nullptr) return sizeof(FrameHeader);
    return sizeof(FrameHeader) + parcel->objects().size() * sizeof(ObjectEntry) +
           parcel->dataSize();
}

iovec span(const uint8_t* bytes, size_t size) {
    return {const_cast<uint8_t*>(bytes), size};
}

}  // namespace

status_t Connection::checkSendable(const Parcel& parcel) const {
    if (parcel.errorCheck() != OK || parcel.dataSize() > kMaxPayload ||
        parcel.dataSize() % 4 != 0 || parcel.objects().size() > kMaxObjects) {
        return FAILED_TRANSACTION;
    }
    for (const Parcel::Object& object : parcel.objects()) {
        const BpBinder* const remote = object.binder->remoteBinder();
        if (remote != nullptr && remote->connection() != this) {
            __android_log_print(ANDROID_LOG_WARN, "Binder",
                                "an object of process %d is not passed on to process %d",
                                static_cast<int>(remote->connection()->peerPid()),
                                static_cast<int>(mPeer.pid));
            return BAD_TYPE;
        }
    }
    return OK;
}

// The name of the object for the other side; counts one of ours as given out once more.
ObjectEntry Connection::giveOutLocked(const Parcel::Object& object) {
    const BpBinder* const remote = object.binder->remoteBinder();
    if (remote != nullptr) return {object.offset, RECEIVER, remote->handle()};
    BBinder* const local = object.binder->localBinder();
    if (local == mRoot.get()) return {object.offset, SENDER, 0};
    uint32_t& handle = mExportHandles[local];
    if (handle == 0) {
        do {
            ++mLastHandle;
        } while (mLastHandle == 0 || mExports.count(mLastHandle) != 0);
        handle = mLastHandle;
        mExports.emplace(handle, Export{local, 0});
    }
    ++mExports.at(handle).count;
    return {object.offset, SENDER, handle};
}

// A call is sent behind the numbers of those lost before it, or not at all.
status_t Connection::sendCallLocked(const FrameHeader& header, const Parcel& data) {
    const size_t room = kMaxCallQueue - mLost.size() * (sizeof(FrameHeader) + sizeof(int32_t));
    if (mOut.size() + frameSize(&data) <= room) tellLostLocked();
    const status_t status = sendLocked(header, &data, mLost.empty() ? kMaxCallQueue : room);
    if (status == FAILED_TRANSACTION && header.callId == 0) noteLostLocked(header.handle);
    return status;
}

void Connection::noteLostLocked(uint32_t handle) {
    if (mLostInAll++ == 0) {
        __android_log_print(ANDROID_LOG_WARN, "Binder",
                            "process %d does not read its calls: one-way ones are lost",
                            static_cast<int>(mPeer.pid));
    }
    int32_t& lost = mLost[handle];
    if (lost < INT32_MAX) ++lost;
}

// Logs how many calls were lost in all, once.
void Connection::logLostLocked(const char* then) {
    if (mLostInAll > 0) {
        __android_log_print(ANDROID_LOG_WARN, "Binder",
                            "process %d %s: %" PRIu64 " one-way calls to it were lost",
                            static_cast<int>(mPeer.pid), then, mLostInAll);
    }
    mLostInAll = 0;
}

// Tells each object the number of its lost calls.
void Connection::tellLostLocked() {
    FrameHeader header{};
    header.kind = CALL;
    header.flags = IBinder::FLAG_ONEWAY;
    header.code = IBinder::LOST_CALLS_TRANSACTION;
    for (const auto& [handle, lost] : mLost) {
        Parcel count;
        count.writeInt32(lost);
        header.handle = handle;
        sendLocked(header, &count, kMaxReplyQueue);
    }
    mLost.clear();
}

// Sends or queues a frame; FAILED_TRANSACTION, nothing sent, if mOut would exceed `limit`.
status_t Connection::sendLocked(const FrameHeader& header, const Parcel* parcel, size_t limit) {
    if (!alive()) return DEAD_OBJECT;
    if (mOut.size() + frameSize(parcel) > limit) return FAILED_TRANSACTION;
    const size_t objects = parcel != nullptr ? parcel->objects().size() : 0;
    const size_t dataSize = parcel != nullptr ? parcel->dataSize() : 0;
    const size_t headSize = sizeof(FrameHeader) + objects * sizeof(ObjectEntry);

    FrameHeader whole = header;
    whole.magic = kMagic;
    whole.size = static_cast<uint32_t>(headSize - sizeof(FrameHeader) + dataSize);
    whole.objectCount = static_cast<uint32_t>(objects);
    std::vector<uint8_t> head(headSize);
    memcpy(head.data(), &whole, sizeof(whole));
    for (size_t i = 0; i < objects; ++i) {
        const ObjectEntry entry = giveOutLocked(parcel->objects()[i]);
        memcpy(head.data() + sizeof(whole) + i * sizeof(entry), &entry, sizeof(entry));
    }
    writeLocked(head.data(), head.size(), parcel != nullptr ? parcel->data() : nullptr, dataSize);
    return alive() ? OK : DEAD_OBJECT;
}

void Connection::writeLocked(const uint8_t* head, size_t headSize, const uint8_t* body,
                             size_t bodySize) {
    const size_t sent = mOut.empty() ? sendNowLocked(head, headSize, body, bodySize) : 0;
    if (!alive()) return;
    const size_t sentHead = std::min(sent, headSize);
    const size_t sentBody = sent - sentHead;
    mOut.append(head + sentHead, headSize - sentHead);
    if (sentBody < bodySize) mOut.append(body + sentBody, bodySize - sentBody);
    if (!mOut.empty()) updateInterestLocked();
}

// Returns how many bytes the kernel took. A socket closed by the other side ends the sending; bytes
// that arrived before are still read.
size_t Connection::sendNowLocked(const uint8_t* head, size_t headSize, const uint8_t* body,
                                 size_t bodySize) {
    iovec parts[] = {span(head, headSize), span(body, bodySize)};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = bodySize > 0 ? 2 : 1;
    ssize_t sent;
    do {
        sent = sendmsg(mSocket.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (sent < 0 && errno == EINTR);
    if (sent >= 0) return static_cast<size_t>(sent);
    if (errno == EPIPE || errno == ECONNRESET || errno == ENOTCONN) {
        mGone.store(true, std::memory_order_release);
        mOut.clear();
        mDrained.broadcast();
    }
    return 0;
}

void Connection::flushLocked() {
    while (!mOut.empty()) {
        const size_t sent = sendNowLocked(mOut.front(), mOut.size(), nullptr, 0);
        if (sent == 0) break;
        mOut.consume(sent);
    }
    if (mOut.empty()) {
        mDrained.broadcast();
        tellLostLocked();
        logLostLocked("reads again");
    }
    updateInterestLocked();
}

void Connection::drain(int64_t nanos) {
    Mutex::Autolock lock(mLock);
    while (!mOut.empty() && !mClosed) {
        if (mDrained.waitRelative(mLock, nanos) != OK) return;
    }
}

}  // namespace android::transport
