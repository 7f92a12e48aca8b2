#pragma once

#include <binder/transport/call_pool.h>
#include <binder/transport/io_loop.h>
#include <binder/transport/notice_thread.h>
#include <binder/transport/object_quota.h>
#include <binder/transport/service_directory.h>

#include <atomic>
#include <cstdint>

namespace android::transport {

// The parts of binder that exist once per process. Never destroyed.
class Process {
  public:
    static Process& get() {
        static Process& process = *new Process();
        return process;
    }

    IoLoop& io() { return mIo; }
    CallPool& calls() { return mCalls; }
    NoticeThread& notices() { return mNotices; }
    // Loop's thread only.
    AcceptedConnections& accepted() { return mAccepted; }
    ObjectQuota& quota() { return mQuota; }
    ServiceDirectory& services() { return mServices; }
    // See ProcessState::setCallTimeout().
    std::atomic<int64_t>& callTimeoutNanos() { return mCallTimeoutNanos; }

  private:
    Process() : mServices(*this) {}

    IoLoop mIo;
    CallPool mCalls;
    NoticeThread mNotices;
    AcceptedConnections mAccepted;
    ObjectQuota mQuota;
    ServiceDirectory mServices;
    std::atomic<int64_t> mCallTimeoutNanos{0};
};

}  // namespace android::transport
