#pragma once

#include <sys/types.h>

namespace android {

// The calling thread's part in binder calls.
class IPCThreadState {
  public:
    static IPCThreadState* self();

    // Who made the call that this thread is executing; this process outside of one.
    pid_t getCallingPid() const { return mPid; }
    uid_t getCallingUid() const { return mUid; }

    // Makes the calling thread one of the pool until ProcessState::shutDown(): returns when every
    // running call has finished and their replies have been handed on.
    void joinThreadPool(bool isMain = true);

    // For the pool: the caller of the calls that this thread makes within the scope.
    class Caller {
      public:
        Caller(pid_t pid, uid_t uid);
        ~Caller();
        Caller(const Caller&) = delete;
        Caller& operator=(const Caller&) = delete;

      private:
        const pid_t mPid;
        const uid_t mUid;
    };

  private:
    IPCThreadState();

    pid_t mPid;
    uid_t mUid;
};

}  // namespace android
