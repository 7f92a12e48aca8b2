#pragma once

#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <deque>
#include <functional>
#include <string>

namespace android::transport {

// Starts a detached thread with every signal blocked, its name cut to 15 characters; false and a
// log line when the system has no thread left.
bool spawnThread(const std::string& name, std::function<void()> body);

// One thread that reports deaths and releases objects, in order. Both run foreign code, which must
// not happen on the thread that reads the sockets. Started by the first post().
class NoticeThread {
  public:
    void post(std::function<void()> notice) EXCLUDES(mLock);

  private:
    void run() EXCLUDES(mLock);

    Mutex mLock;
    Condition mPosted;
    bool mStarted GUARDED_BY(mLock) = false;
    std::deque<std::function<void()>> mNotices GUARDED_BY(mLock);
};

}  // namespace android::transport
