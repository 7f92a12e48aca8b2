// The least that a loop can cost: a batch mailbox directly on eventfd and epoll.
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "bench/mailbox.h"

namespace bench {
namespace {

class EpollPeer : public Peer {
  public:
    explicit EpollPeer(Receiver receiver) : Peer(std::move(receiver)) {
        epoll_event item = {};
        item.events = EPOLLIN;
        epoll_ctl(mEpoll, EPOLL_CTL_ADD, mEvent, &item);
    }
    ~EpollPeer() override {
        close(mEpoll);
        close(mEvent);
    }

    void post(const Message& message) override {
        if (mMailbox.put(message)) eventfd_write(mEvent, 1);
    }
    void run() override {
        while (!mQuit) {
            epoll_event items[16];
            epoll_wait(mEpoll, items, 16, -1);
            eventfd_t count;
            eventfd_read(mEvent, &count);
            mMailbox.drain(receive);
        }
    }
    void quit() override { mQuit = true; }

  private:
    const int mEvent = eventfd(0, EFD_NONBLOCK);
    const int mEpoll = epoll_create1(0);
    Mailbox mMailbox;
    bool mQuit = false;
};

const Registration registration("epoll-mailbox", make<EpollPeer>);

}  // namespace
}  // namespace bench
