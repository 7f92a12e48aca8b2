#include "sim/kernel/display_kernel.h"

#include <algorithm>

namespace sim {

bool DisplayChannel::receive(DisplayRecord* record) {
    Lock lock(mMutex);
    while (mRecords.empty()) {
        if (mEnded) return false;
        mChanged.wait(mMutex);
    }
    *record = std::move(mRecords.front());
    mRecords.pop_front();
    return true;
}

bool DisplayChannel::push(const DisplayRecord& record) {
    Lock lock(mMutex);
    if (mEnded || mRecords.size() >= kMaxRecords) return false;
    mRecords.push_back(record);
    mChanged.notifyAll();
    return true;
}

void DisplayChannel::end() {
    Lock lock(mMutex);
    mEnded = true;
    mChanged.notifyAll();
}

std::shared_ptr<DisplayChannel> DisplayKernel::open() {
    auto channel = std::make_shared<DisplayChannel>();
    Lock lock(mMutex);
    mChannels.push_back(channel);
    return channel;
}

std::vector<std::shared_ptr<DisplayChannel>> DisplayKernel::channels() {
    Lock lock(mMutex);
    mChannels.erase(std::remove_if(mChannels.begin(), mChannels.end(),
                                   [](const auto& channel) { return channel.expired(); }),
                    mChannels.end());
    std::vector<std::shared_ptr<DisplayChannel>> open;
    for (const auto& channel : mChannels) {
        if (auto living = channel.lock()) open.push_back(std::move(living));
    }
    return open;
}

DisplayKernel::Sent DisplayKernel::send(const DisplayRecord& record) {
    Sent sent = Sent::kNobody;
    for (const auto& channel : channels()) {
        const bool lost = !channel->push(record);
        sent = lost || sent == Sent::kLost ? Sent::kLost : Sent::kQueued;
    }
    return sent;
}

void DisplayKernel::end() {
    for (const auto& channel : channels()) channel->end();
}

}  // namespace sim
