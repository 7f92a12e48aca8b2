#pragma once

#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <set>
#include <string>

namespace android {

// Stands at the start of every Thread; open unless thread_control has closed it for a name.
class ThreadGate {
  public:
    bool refuses(const std::string& name) EXCLUDES(mLock);
    void pass(const std::string& name) EXCLUDES(mLock);

    void hold(const std::string& name) EXCLUDES(mLock);
    bool awaitHeld(const std::string& name) EXCLUDES(mLock);
    void release(const std::string& name) EXCLUDES(mLock);
    void refuse(const std::string& name) EXCLUDES(mLock);

  private:
    Mutex mLock;
    Condition mChanged;
    std::set<std::string> mClosed GUARDED_BY(mLock);
    std::multiset<std::string> mWaiting GUARDED_BY(mLock);
    std::set<std::string> mRefused GUARDED_BY(mLock);
};

ThreadGate& threadGate();

}  // namespace android
