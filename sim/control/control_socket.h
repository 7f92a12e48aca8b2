#pragma once

#include <string>
#include <vector>

#include "sim/base/fd.h"

namespace sim {

struct ServedControl {
    Fd lock;  // says who serves, as long as it is open
    Fd listening;
};

// run/control is reached through the directory's descriptor, since the folder's own path may be
// longer than a socket's address. Each throws std::runtime_error with one line.
ServedControl listenForControl(const std::string& runDirectory);
Fd connectToControl(const std::string& runDirectory);

// Whether the process at the other end runs as our user or as root.
bool isTrustedPeer(int fd);

std::string joinTexts(const std::vector<std::string>& texts);
std::vector<std::string> splitTexts(const std::string& joined);

}  // namespace sim
