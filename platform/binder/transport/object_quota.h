#pragma once

#include <sim/base/process_id.h>
#include <sys/types.h>

#include <cstddef>
#include <map>

namespace android::transport {

// How many objects each other process has given to this one, over all its connections. A service
// may keep an object for good, also of a process that has ended, so the bound is on all ever given.
//
// Threads: the loop's only.
class ObjectQuota {
  public:
    static constexpr size_t kMaxObjects = 4096;

    // Counts one more object of the process; false, with a log line the first time, when it has
    // given all that it may.
    bool take(const sim::ProcessId& giver);

  private:
    void forgetEnded();

    std::map<sim::ProcessId, size_t> mGiven;
    size_t mForgetAt = 64;  // processes in the map
};

}  // namespace android::transport
