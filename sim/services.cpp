#include "sim/services.h"

#include "sim/phone_log.h"

namespace sim {

void Services::add(const std::string& name, std::function<void()> run) {
    Lock lock(mMutex);
    mServices[name] = std::move(run);
}

bool Services::start(const std::string& name) {
    std::function<void()> run;
    {
        Lock lock(mMutex);
        auto found = mServices.find(name);
        if (found != mServices.end()) run = found->second;
    }
    if (!run) {
        logAs("init", kError, "Control message: Could not find '" + name + "' for ctl.start");
        return false;
    }
    run();
    return true;
}

}  // namespace sim
