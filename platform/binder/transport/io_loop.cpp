#include <android/log.h>
#include <binder/transport/io_loop.h>
#include <binder/transport/notice_thread.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace android::transport {

namespace {

using std::chrono::steady_clock;

bool control(int epoll, int operation, uint64_t id, int fd, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = id;
    if (epoll_ctl(epoll, operation, fd, &event) == 0) return true;
    __android_log_print(ANDROID_LOG_ERROR, "Binder", "epoll_ctl: %s", strerror(errno));
    return false;
}

}  // namespace

bool IoLoop::startLocked() {
    if (mEpoll.valid()) return true;
    sim::Fd epoll(epoll_create1(EPOLL_CLOEXEC));
    if (!epoll.valid()) {
        __android_log_print(ANDROID_LOG_ERROR, "Binder", "epoll_create1: %s", strerror(errno));
        return false;
    }
    mEpoll = std::move(epoll);
    if (spawnThread("Binder:io", [this] { run(); })) return true;
    mEpoll = sim::Fd();
    return false;
}

uint64_t IoLoop::add(const std::shared_ptr<IoSource>& source, int fd, uint32_t events) {
    Mutex::Autolock lock(mLock);
    if (!startLocked()) return 0;
    if (!control(mEpoll.get(), EPOLL_CTL_ADD, ++mLastId, fd, events)) return 0;
    mSources.emplace(mLastId, source);
    return mLastId;
}

void IoLoop::change(uint64_t id, int fd, uint32_t before, uint32_t after) {
    if (before == after) return;
    // epoll reports a hang-up even with no events asked for; once is enough.
    control(mEpoll.get(), EPOLL_CTL_MOD, id, fd, after != 0 ? after : uint32_t{EPOLLONESHOT});
}

void IoLoop::remove(uint64_t id, int fd) {
    control(mEpoll.get(), EPOLL_CTL_DEL, id, fd, 0);
    std::shared_ptr<IoSource> last;  // destroyed without the lock
    Mutex::Autolock lock(mLock);
    const auto entry = mSources.find(id);
    if (entry == mSources.end()) return;
    last = std::move(entry->second);
    mSources.erase(entry);
}

std::shared_ptr<IoSource> IoLoop::find(uint64_t id) {
    Mutex::Autolock lock(mLock);
    const auto entry = mSources.find(id);
    return entry != mSources.end() ? entry->second : nullptr;
}

std::vector<std::shared_ptr<IoSource>> IoLoop::sources() {
    Mutex::Autolock lock(mLock);
    std::vector<std::shared_ptr<IoSource>> result;
    for (const auto& entry : mSources) result.push_back(entry.second);
    return result;
}

void IoLoop::retryLater(std::weak_ptr<IoSource> source) {
    if (mRetrying.empty()) mRetryTime = steady_clock::now() + std::chrono::seconds(1);
    mRetrying.push_back(std::move(source));
}

void IoLoop::retryNow() {
    std::vector<std::weak_ptr<IoSource>> retrying;
    retrying.swap(mRetrying);
    for (const auto& entry : retrying) {
        if (const auto source = entry.lock()) source->onRetry();
    }
}

int IoLoop::millisToRetry() const {
    if (mRetrying.empty()) return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(mRetryTime - steady_clock::now());
    return static_cast<int>(std::max<int64_t>(left.count(), 0));
}

void IoLoop::run() {
    constexpr int kMaxEvents = 64;
    epoll_event events[kMaxEvents];
    for (;;) {
        const int count = epoll_wait(mEpoll.get(), events, kMaxEvents, millisToRetry());
        for (int i = 0; i < count; ++i) {
            if (const auto source = find(events[i].data.u64)) source->onReady(events[i].events);
        }
        if (millisToRetry() == 0) retryNow();
    }
}

}  // namespace android::transport
