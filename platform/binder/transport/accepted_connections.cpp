#include <binder/transport/accepted_connections.h>
#include <binder/transport/connection.h>
#include <sys/resource.h>

#include <algorithm>

namespace android::transport {

namespace {

size_t limit() {
    rlimit descriptors{};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) != 0) return AcceptedConnections::kMax;
    return static_cast<size_t>(
        std::min<rlim_t>(AcceptedConnections::kMax, descriptors.rlim_cur / 4));
}

}  // namespace

void AcceptedConnections::forgetEnded() {
    const auto ended = [](const std::weak_ptr<Connection>& entry) {
        const auto connection = entry.lock();
        return connection == nullptr || connection->ended();
    };
    mConnections.erase(std::remove_if(mConnections.begin(), mConnections.end(), ended),
                       mConnections.end());
}

bool AcceptedConnections::makeRoom() {
    if (mConnections.size() < limit()) return true;
    forgetEnded();
    if (mConnections.size() < limit()) return true;
    for (const auto& entry : mConnections) {
        const auto connection = entry.lock();
        if (connection != nullptr && connection->endUnlessGreeted()) return true;
    }
    return false;
}

}  // namespace android::transport
