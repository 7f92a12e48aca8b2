#include <android/log.h>
#include <binder/transport/notice_thread.h>
#include <pthread.h>
#include <signal.h>

#include <system_error>
#include <thread>

namespace android::transport {

bool spawnThread(const std::string& name, std::function<void()> body) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    bool made = true;
    try {
        std::thread([name = name.substr(0, 15), body = std::move(body)] {
            pthread_setname_np(pthread_self(), name.c_str());
            body();
        }).detach();
    } catch (const std::system_error& error) {
        made = false;
        __android_log_print(ANDROID_LOG_ERROR, "Binder", "no thread %s: %s", name.c_str(),
                            error.what());
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return made;
}

void NoticeThread::post(std::function<void()> notice) {
    Mutex::Autolock lock(mLock);
    mNotices.push_back(std::move(notice));
    if (!mStarted) mStarted = spawnThread("Binder:notices", [this] { run(); });
    mPosted.signal();
}

void NoticeThread::run() {
    for (;;) {
        std::function<void()> notice;
        {
            Mutex::Autolock lock(mLock);
            while (mNotices.empty()) mPosted.wait(mLock);
            notice = std::move(mNotices.front());
            mNotices.pop_front();
        }
        notice();
    }
}

}  // namespace android::transport
