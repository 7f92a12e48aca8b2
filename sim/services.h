#pragma once

#include <functional>
#include <map>
#include <string>

#include "sim/mutex.h"

namespace sim {

// The services that the phone's init can start by name ("ctl.start"): stand-ins, registered by
// whoever plays them.
// Threads: any. A service runs on the thread that starts it, with no lock held.
class Services {
  public:
    // A service of that name registered before is replaced.
    void add(const std::string& name, std::function<void()> run) SIM_EXCLUDES(mMutex);
    // Runs the service; false and a log line when there is none of that name.
    bool start(const std::string& name) SIM_EXCLUDES(mMutex);

  private:
    Mutex mMutex;
    std::map<std::string, std::function<void()>> mServices SIM_GUARDED_BY(mMutex);
};

}  // namespace sim
