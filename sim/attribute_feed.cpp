#include "sim/attribute_feed.h"

#include <errno.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <system_error>
#include <thread>

namespace sim {
namespace {

// False when the socket takes no more for now.
bool send(AttributeFeed& feed, int flags) {
    const std::string& text = *feed.text;
    const size_t end =
        feed.faults.readError != 0 ? 0 : std::min(text.size(), feed.faults.endsAfter);
    while (feed.sent < end) {
        const size_t size = std::min(feed.faults.readBytes, end - feed.sent);
        const ssize_t sent =
            ::send(feed.socket->get(), text.data() + feed.sent, size, flags | MSG_NOSIGNAL);
        if (sent >= 0) {
            feed.sent += static_cast<size_t>(sent);
        } else if (errno == EAGAIN) {
            return false;
        } else if (errno != EINTR) {
            shutdown(feed.socket->get(), SHUT_WR);  // the reader has closed, or meets an early end
            return true;
        }
    }
    if (end < text.size() && feed.faults.atEnd) feed.faults.atEnd();
    shutdown(feed.socket->get(), SHUT_WR);
    return true;
}

}  // namespace

bool startFeed(AttributeFeed feed) try {
    if (send(feed, MSG_DONTWAIT)) return true;
    std::thread([feed = std::move(feed)]() mutable {
        pthread_setname_np(pthread_self(), "sim_attribute");
        send(feed, 0);
    }).detach();
    return true;
} catch (const std::system_error&) {
    return false;
}

}  // namespace sim
