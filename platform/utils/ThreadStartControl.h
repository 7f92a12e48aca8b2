// Lets a test, or a workstation's host, act on threads that are about to start in its process. The
// phone has none of this: the product never includes it.
//
// Threads: every function from any thread.
#pragma once

#include <string>

namespace android::thread_control {

// New threads of this name wait before readyToRun() until release().
void hold(const std::string& name);
// Waits until a held thread of this name has come; false when none did within ten seconds.
bool awaitHeld(const std::string& name);
void release(const std::string& name);

// Thread::run() with this name fails as if the system had no more threads.
void refuse(const std::string& name);

// For Thread: whether run() of this name fails, and the place where a held thread waits.
bool refused(const std::string& name);
void waitWhileHeld(const std::string& name);

}  // namespace android::thread_control
