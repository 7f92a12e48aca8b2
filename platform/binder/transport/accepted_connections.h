#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace android::transport {

class Connection;

// The connections this process has accepted, at all its names together: never more than kMax and
// than a quarter of its descriptors, so that no crowd of clients takes the descriptors its other
// work needs.
//
// Who has not greeted gives way to who comes, the oldest first: silent sockets keep nobody out.
// Threads: the loop's only.
class AcceptedConnections {
  public:
    static constexpr size_t kMax = 256;

    // Whether one more may be accepted.
    bool makeRoom();
    void add(const std::shared_ptr<Connection>& connection) { mConnections.push_back(connection); }

  private:
    void forgetEnded();

    std::vector<std::weak_ptr<Connection>> mConnections;  // oldest first, some ended
};

}  // namespace android::transport
