#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/ThreadStartControl.h>

#include <set>

namespace android::thread_control {

namespace {

struct State {
    Mutex lock;
    Condition changed;
    std::set<std::string> held GUARDED_BY(lock);
    std::multiset<std::string> waiting GUARDED_BY(lock);
    std::set<std::string> refused GUARDED_BY(lock);
};

State& state() {
    static State& state = *new State();
    return state;
}

}  // namespace

void hold(const std::string& name) {
    State& s = state();
    Mutex::Autolock lock(s.lock);
    s.held.insert(name);
}

bool awaitHeld(const std::string& name) {
    constexpr int64_t kMaxWaitNanos = 10'000'000'000;
    State& s = state();
    Mutex::Autolock lock(s.lock);
    while (s.waiting.count(name) == 0) {
        if (s.changed.waitRelative(s.lock, kMaxWaitNanos) == TIMED_OUT) return false;
    }
    return true;
}

void release(const std::string& name) {
    State& s = state();
    Mutex::Autolock lock(s.lock);
    s.held.erase(name);
    s.changed.broadcast();
}

void refuse(const std::string& name) {
    State& s = state();
    Mutex::Autolock lock(s.lock);
    s.refused.insert(name);
}

bool refused(const std::string& name) {
    State& s = state();
    Mutex::Autolock lock(s.lock);
    return s.refused.count(name) != 0;
}

void waitWhileHeld(const std::string& name) {
    State& s = state();
    Mutex::Autolock lock(s.lock);
    if (s.held.count(name) == 0) return;
    const auto waiting = s.waiting.insert(name);
    s.changed.broadcast();
    while (s.held.count(name) != 0) s.changed.wait(s.lock);
    s.waiting.erase(waiting);
}

}  // namespace android::thread_control
