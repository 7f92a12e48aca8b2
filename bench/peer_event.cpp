#include <event2/event.h>
#include <event2/thread.h>

#include "bench/mailbox.h"

namespace bench {
namespace {

// A batch mailbox; event_active() wakes the loop.
class EventPeer : public Peer {
  public:
    explicit EventPeer(Receiver receiver) : Peer(std::move(receiver)) {
        evthread_use_pthreads();
        mBase = event_base_new();
        mEvent = event_new(
            mBase, -1, EV_PERSIST,
            [](evutil_socket_t, short, void* self) {
                auto* peer = static_cast<EventPeer*>(self);
                peer->mMailbox.drain(peer->receive);
            },
            this);
        event_add(mEvent, nullptr);
    }
    ~EventPeer() override {
        event_free(mEvent);
        event_base_free(mBase);
    }

    void post(const Message& message) override {
        if (mMailbox.put(message)) event_active(mEvent, EV_READ, 0);
    }
    void postIn(int64_t nanos, const Message& message) override {
        auto* timer = new Timer{nullptr, this, message};
        timer->entry = evtimer_new(mBase, fire, timer);
        const timeval delay = {static_cast<time_t>(nanos / 1000000000),
                               static_cast<suseconds_t>((nanos % 1000000000 + 999) / 1000)};
        evtimer_add(timer->entry, &delay);
    }
    void run() override { event_base_loop(mBase, EVLOOP_NO_EXIT_ON_EMPTY); }
    void quit() override { event_base_loopbreak(mBase); }

  private:
    struct Timer {
        event* entry;
        EventPeer* peer;
        Message message;
    };
    static void fire(evutil_socket_t, short, void* data) {
        const std::unique_ptr<Timer> timer(static_cast<Timer*>(data));
        timer->peer->receive(timer->message);
        event_free(timer->entry);
    }

    event_base* mBase;
    event* mEvent;
    Mailbox mMailbox;
};

const Registration registration("event-mailbox", make<EventPeer>);

}  // namespace
}  // namespace bench
