#pragma once

#include <sys/types.h>

namespace android {

// The binder state of the calling thread: whose call it executes.
class IPCThreadState {
  public:
    static IPCThreadState* self();

    // The process whose call this thread executes; this process outside of a call.
    pid_t getCallingPid() const { return mPid; }

    // Makes the calling thread one of the pool until ProcessState::shutDown(). Returns when every
    // running call has finished and the replies have been sent, or a second later.
    void joinThreadPool(bool isMain = true);

    // For the pool: as long as it lives, getCallingPid() on its thread returns `pid`.
    class Caller {
      public:
        explicit Caller(pid_t pid);
        ~Caller();
        Caller(const Caller&) = delete;
        Caller& operator=(const Caller&) = delete;

      private:
        const pid_t mPrevious;
    };

  private:
    IPCThreadState();

    pid_t mPid;
};

}  // namespace android
