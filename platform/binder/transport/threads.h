#pragma once

#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <deque>
#include <functional>
#include <string>

namespace android::transport {

// A detached thread of that name with every signal blocked. False, and a log line, when the system
// gives none.
bool spawnThread(const std::string& name, std::function<void()> body);

// One thread that does, in order, what must not be done on the thread that reads the sockets:
// telling of deaths and letting go of objects, both of which run foreign code. Started when first
// needed.
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
