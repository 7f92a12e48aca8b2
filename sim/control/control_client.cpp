#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <stdexcept>

#include "sim/control/control.h"
#include "sim/control/control_socket.h"
#include "sim/phone.h"

namespace sim {
namespace {

constexpr timeval kPatience{90, 0};  // more than any command has

std::string requestOf(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        if (word.find('\0') != std::string::npos)
            throw std::runtime_error("an argument of '" + words[0] + "' holds a NUL");
    }
    const std::string request = joinTexts(words);
    if (request.empty()) throw std::runtime_error("no command is named");
    if (request.size() > Control::kRequestBytes)
        throw std::runtime_error("the arguments of '" + words[0] + "' are too long");
    return request;
}

void sendRequest(int fd, const std::string& request) {
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof(kPatience));
    if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) < 0)
        throw std::runtime_error(std::string("the command is not sent: ") + strerror(errno));
}

std::string receiveReply(int fd) {
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof(kPatience));
    std::string reply;
    std::vector<char> block(Control::kRequestBytes + 1);
    do {
        const ssize_t got = recv(fd, block.data(), block.size(), 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0 || reply.size() > Control::kReplyBytes) {
            throw std::runtime_error(got < 0 && errno == EAGAIN ? "no answer within 90 s"
                                                                : "the answer breaks off");
        }
        reply.append(block.data() + 1, static_cast<size_t>(got) - 1);
    } while (block[0] != '.');
    return reply;
}

}  // namespace

Reply controlRequest(const std::string& folder, const std::vector<std::string>& words) {
    const std::string request = requestOf(words);
    const Fd fd = connectToControl(folder + "/run");
    sendRequest(fd.get(), request);
    Reply reply;
    reply.texts = splitTexts(receiveReply(fd.get()));
    reply.ok = reply.texts[0] == "ok";
    if (!reply.ok && reply.texts[0] != "error")
        throw std::runtime_error("the answer is neither ok nor error");
    reply.texts.erase(reply.texts.begin());
    return reply;
}

Reply controlRequest(const Phone& phone, const std::vector<std::string>& words) {
    return controlRequest(phone.folder(), words);
}

}  // namespace sim
