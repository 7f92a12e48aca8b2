#pragma once

#include <sim/control.h>

#include <string>
#include <vector>

namespace pelto {

class Client;

// Has the service's process do a command of the phone's control socket; the texts it answers with.
// Throws Failure: kNoPhone, kNoService, or kFailed with what the command says is wrong.
std::vector<std::string> askPhone(Client& client, const std::vector<std::string>& words);

}  // namespace pelto
