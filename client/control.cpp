#include "client/control.h"

#include "client/client.h"
#include "client/text.h"

namespace pelto {

std::vector<std::string> askPhone(Client& client, const std::vector<std::string>& words) {
    client.service();
    try {
        sim::Reply reply = sim::controlRequest(client.phone(), words);
        if (reply.ok) return std::move(reply.texts);
        reply.texts.resize(1);
        // Some commands name themselves.
        const bool named = reply.texts[0].rfind(words[0] + ": ", 0) == 0;
        throw Failure(kFailed, (named ? "" : words[0] + ": ") + printable(reply.texts[0]));
    } catch (const Failure&) {
        throw;
    } catch (const std::runtime_error& failure) {
        throw Failure(kFailed, words[0] + ": " + failure.what());
    }
}

}  // namespace pelto
