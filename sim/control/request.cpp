#include "sim/control/request.h"

#include <fcntl.h>
#include <string.h>
#include <sys/time.h>

#include <stdexcept>

#include "sim/base/unix_socket.h"

namespace sim {
namespace {

constexpr timeval kTimeout{kReplyTimeout.count(), 0};

std::string requestOf(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        if (word.find('\0') != std::string::npos)
            throw std::runtime_error("an argument of '" + words[0] + "' holds a NUL");
    }
    const std::string request = joinTexts(words);
    if (request.empty()) throw std::runtime_error("no command is named");
    if (request.size() > kMaxRequestBytes)
        throw std::runtime_error("the arguments of '" + words[0] + "' are too long");
    return request;
}

void sendRequest(int fd, const std::string& request) {
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &kTimeout, sizeof(kTimeout));
    if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) < 0)
        throw std::runtime_error(std::string("the command is not sent: ") + strerror(errno));
}

std::string receiveReply(int fd) {
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &kTimeout, sizeof(kTimeout));
    std::string reply;
    std::vector<char> block(kMaxRequestBytes + 1);
    do {
        const ssize_t got = recv(fd, block.data(), block.size(), 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0 || reply.size() > kMaxReplyBytes) {
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

Fd connectToControl(const std::string& runDirectory) {
    const Fd directory = openControlDirectory(runDirectory);
    Fd fd = connectSocket(directory, "control", SOCK_SEQPACKET);
    if (!fd.valid()) {
        const bool nobody = errno == ENOENT || errno == ECONNREFUSED;
        failControl(runDirectory, nobody ? "nobody serves this phone" : strerror(errno));
    }
    const auto peer = peerOf(fd.get());
    if (!peer || !isTrusted(*peer)) failControl(runDirectory, "is served by another user");
    return fd;
}

Fd openControlDirectory(const std::string& runDirectory) {
    Fd fd(open(runDirectory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!fd.valid()) failControl(runDirectory, strerror(errno));
    return fd;
}

void failControl(const std::string& runDirectory, const std::string& why) {
    throw std::runtime_error(runDirectory + "/control: " + why);
}

std::string joinTexts(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts) {
        if (&text != &texts.front()) joined += '\0';
        joined += text;
    }
    return joined;
}

std::vector<std::string> splitTexts(const std::string& joined) {
    std::vector<std::string> texts;
    size_t begin = 0;
    for (size_t end; (end = joined.find('\0', begin)) != std::string::npos; begin = end + 1)
        texts.push_back(joined.substr(begin, end - begin));
    texts.push_back(joined.substr(begin));
    return texts;
}

}  // namespace sim
