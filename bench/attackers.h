#pragma once

#include <string>

namespace bench {

// Clients that misuse the service of the open phone, each in a process of its own, until that is
// killed: "flood" sends events as fast as they are taken, "slow" is a native client that takes ten
// milliseconds an event, "deaf" one that stops as soon as it is registered. Returns an exit code
// when the service takes no such client or has ended, or when there is no such kind.
int attack(const std::string& kind);

}  // namespace bench
