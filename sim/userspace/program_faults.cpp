#include "sim/userspace/program_faults.h"

namespace sim {

void ProgramFaults::add(const std::string& program) {
    Lock lock(mMutex);
    mPrograms.insert(program);
}

std::vector<std::string> ProgramFaults::programs() {
    Lock lock(mMutex);
    return {mPrograms.begin(), mPrograms.end()};
}

void ProgramFaults::fail(const std::string& program, int exitStatus) {
    Lock lock(mMutex);
    mFailing[program] = exitStatus;
}

void ProgramFaults::hang(const std::string& program) {
    Lock lock(mMutex);
    mHanging.insert(program);
}

void ProgramFaults::release(const std::string& program) {
    Lock lock(mMutex);
    mHanging.erase(program);
    mChanged.notifyAll();
}

bool ProgramFaults::waitHanging(const std::string& program) {
    Lock lock(mMutex);
    return mChanged.waitFor(mMutex, std::chrono::seconds(30),
                            [&]() SIM_REQUIRES(mMutex) { return mWaiting.count(program) != 0; });
}

int ProgramFaults::apply(const std::string& program) {
    Lock lock(mMutex);
    if (mHanging.count(program) != 0) {
        const auto waiting = mWaiting.insert(program);
        mChanged.notifyAll();
        while (mHanging.count(program) != 0) mChanged.wait(mMutex);
        mWaiting.erase(waiting);
    }
    const auto failing = mFailing.find(program);
    return failing == mFailing.end() ? 0 : failing->second;
}

}  // namespace sim
