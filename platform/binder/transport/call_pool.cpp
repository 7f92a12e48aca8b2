#include <binder/IPCThreadState.h>
#include <binder/transport/call_pool.h>
#include <binder/transport/connection.h>
#include <binder/transport/notice_thread.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

namespace android::transport {

namespace {

void execute(IncomingCall& call) {
    call.from->begun(call.charge);
    const IPCThreadState::Caller caller(call.from->peerPid());
    Parcel reply;
    const status_t status = call.target->transact(call.code, call.data, &reply, call.flags);
    if (!call.oneWay()) call.from->reply(call.id, status, reply);
}

void refuse(IncomingCall& call) {
    call.from->begun(call.charge);
    if (!call.oneWay()) call.from->reply(call.id, DEAD_OBJECT, Parcel());
}

}  // namespace

void CallPool::setMaxThreads(size_t count) {
    Mutex::Autolock lock(mLock);
    mMaxThreads = count;
}

void CallPool::start() {
    Mutex::Autolock lock(mLock);
    if (std::exchange(mStarted, true)) return;
    growLocked();
}

void CallPool::growLocked() {
    if (mStopped || mSpawned >= 1 + mMaxThreads) return;
    const std::string name =
        "Binder:" + std::to_string(getpid()) + "_" + std::to_string(mSpawned + 1);
    if (!spawnThread(name, [this] { work(); })) return;
    ++mSpawned;
    ++mFree;
}

void CallPool::post(IncomingCall call) {
    {
        Mutex::Autolock lock(mLock);
        if (!mStopped) {
            if (call.oneWay()) {
                const auto lane = mLanes.find(call.target.get());
                if (lane != mLanes.end()) {
                    lane->second.push_back(std::move(call));
                    return;
                }
                mLanes.emplace(call.target.get(), std::deque<IncomingCall>());
            }
            readyLocked(std::move(call));
            return;
        }
    }
    refuse(call);
}

void CallPool::readyLocked(IncomingCall call) {
    mReady.push_back(std::move(call));
    mWork.signal();
    if (mStarted && mReady.size() > mFree) growLocked();
}

bool CallPool::take(IncomingCall* call) {
    Mutex::Autolock lock(mLock);
    while (mReady.empty() && !mStopped) mWork.wait(mLock);
    if (mStopped) return false;
    *call = std::move(mReady.front());
    mReady.pop_front();
    --mFree;
    ++mRunning;
    return true;
}

void CallPool::finished(const IncomingCall& call) {
    Mutex::Autolock lock(mLock);
    --mRunning;
    ++mFree;
    if (mStopped) mQuiet.broadcast();
    if (!call.oneWay()) return;
    const auto lane = mLanes.find(call.target.get());
    if (lane == mLanes.end()) return;
    if (lane->second.empty()) {
        mLanes.erase(lane);
        return;
    }
    IncomingCall next = std::move(lane->second.front());
    lane->second.pop_front();
    readyLocked(std::move(next));
}

void CallPool::work() {
    for (;;) {
        IncomingCall call;
        if (!take(&call)) return;
        execute(call);
        finished(call);
    }
}

void CallPool::join() {
    {
        Mutex::Autolock lock(mLock);
        ++mFree;
    }
    work();
    Mutex::Autolock lock(mLock);
    while (mRunning > 0) mQuiet.wait(mLock);
}

void CallPool::stop() {
    std::vector<IncomingCall> waiting;
    {
        Mutex::Autolock lock(mLock);
        if (std::exchange(mStopped, true)) return;
        for (IncomingCall& call : mReady) waiting.push_back(std::move(call));
        mReady.clear();
        for (auto& lane : mLanes) {
            for (IncomingCall& call : lane.second) waiting.push_back(std::move(call));
        }
        mLanes.clear();
        mWork.broadcast();
        mQuiet.broadcast();
    }
    for (IncomingCall& call : waiting) refuse(call);
}

}  // namespace android::transport
