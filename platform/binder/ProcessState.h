#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>

#include <cstddef>
#include <cstdint>

namespace android {

// This process's end of binder: its pool of threads that execute incoming calls.
//
// Ownership: one a process, never destroyed.
// Threads: every operation from any thread.
// Order: incoming calls wait until the pool has a thread: startThreadPool(), or one that joined.
class ProcessState : public virtual RefBase {
  public:
    static sp<ProcessState> self();

    // The most threads that the pool starts beside its first one and those that join; 15 by
    // default.
    status_t setThreadPoolMaxThreadCount(size_t maxThreads);
    // Starts the first thread; further ones follow when calls wait and no thread is free. Their
    // names are "Binder:PID_N".
    void startThreadPool();

    // The longest that a two-way call made by this process waits for its reply; 0, the default,
    // waits without limit. A late call returns TIMED_OUT and ends its connection, so its reply is
    // taken for no other call's; the other side may still execute it.
    void setCallTimeout(int64_t nanos);

    // Ends this process's part as a server for good: its names are withdrawn (socket files
    // removed), no connection is accepted, calls that have not begun are answered DEAD_OBJECT, and
    // joinThreadPool() returns once the running ones have finished. Does not wait itself, so a call
    // may ask for it.
    void shutDown();

  private:
    ProcessState() = default;
    ~ProcessState() override = default;
};

}  // namespace android
