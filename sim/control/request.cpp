#include "sim/control/request.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <string.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <stdexcept>

#include "sim/base/unix_socket.h"

namespace sim {
namespace {

using Steady = std::chrono::steady_clock;

std::string requestOf(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        if (word.find('\0') != std::string::npos)
            throw std::invalid_argument("an argument of '" + words[0] + "' holds a NUL");
    }
    const std::string request = joinTexts(words);
    if (request.empty()) throw std::invalid_argument("no command is named");
    if (request.size() > kMaxRequestBytes)
        throw std::invalid_argument("the arguments of '" + words[0] + "' are too long");
    return request;
}

bool awaitReadable(int fd, Steady::time_point end) {
    pollfd polled{fd, POLLIN, 0};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Steady::now()).count();
        const int ready = poll(&polled, 1, static_cast<int>(std::clamp<int64_t>(left, 0, INT_MAX)));
        if (ready >= 0 || errno != EINTR) return ready > 0;
    }
}

// The next datagram of the reply; nothing when none comes before `end`.
std::optional<std::string> receive(int fd, Steady::time_point end) {
    if (!awaitReadable(fd, end)) return std::nullopt;
    std::string datagram(kMaxRequestBytes + 1, '\0');
    const ssize_t got = recv(fd, datagram.data(), datagram.size(), 0);
    if (got <= 0) throw std::runtime_error("the answer breaks off");
    datagram.resize(static_cast<size_t>(got));
    return datagram;
}

// Sends the request; the joined texts of the reply, nothing when the time passes first.
std::optional<std::string> exchange(int fd, const std::string& request, Steady::time_point end) {
    // A fresh socket has room for any request.
    if (send(fd, request.data(), request.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0)
        throw std::runtime_error(std::string("the command is not sent: ") + strerror(errno));
    std::string reply;
    for (;;) {
        const auto datagram = receive(fd, end);
        if (!datagram) return std::nullopt;
        if (datagram->front() == '~') {
            end = Steady::now() + kReplyTimeout;
            continue;
        }
        if (reply.size() > kMaxReplyBytes) throw std::runtime_error("the answer breaks off");
        reply.append(*datagram, 1);
        if (datagram->front() == '.') return reply;
    }
}

Reply replyOf(const std::string& joined) {
    Reply reply;
    reply.texts = splitTexts(joined);
    const std::string word = reply.texts[0];
    reply.texts.erase(reply.texts.begin());
    reply.ok = word == "ok";
    if (reply.ok) return reply;
    const auto known = std::find(std::begin(kErrorWords), std::end(kErrorWords), word);
    if (known == std::end(kErrorWords)) throw std::runtime_error("the answer is of no known kind");
    reply.error = static_cast<Reply::Error>(known - std::begin(kErrorWords));
    return reply;
}

}  // namespace

Reply controlRequest(const std::string& folder, const std::vector<std::string>& words,
                     std::chrono::nanoseconds timeout) {
    const auto end = Steady::now() + timeout;
    const std::string request = requestOf(words);
    const Fd fd = connectToControl(folder + "/run");
    if (const auto joined = exchange(fd.get(), request, end)) return replyOf(*joined);
    const pid_t pid = peerOf(fd.get()).value_or(ucred{}).pid;
    return {
        false, {"process " + std::to_string(pid) + " does not answer"}, {}, Reply::Error::kTimeout};
}

Fd connectToControl(const std::string& runDirectory) {
    const Fd directory = openControlDirectory(runDirectory);
    // Fails at once, rather than wait, when too many clients wait to be let in.
    Fd fd = connectSocket(directory, "control", SOCK_SEQPACKET | SOCK_NONBLOCK);
    if (!fd.valid()) {
        const bool nobody = errno == ENOENT || errno == ECONNREFUSED;
        failControl(runDirectory, nobody ? "nobody serves this phone" : strerror(errno));
    }
    fcntl(fd.get(), F_SETFL, 0);
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
