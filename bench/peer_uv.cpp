#include <uv.h>

#include "bench/mailbox.h"

namespace bench {
namespace {

// A batch mailbox; uv_async_send() wakes the loop.
class UvPeer : public Peer {
  public:
    explicit UvPeer(Receiver receiver) : Peer(std::move(receiver)) {
        uv_loop_init(&mLoop);
        uv_async_init(&mLoop, &mAsync, [](uv_async_t* async) {
            auto* self = static_cast<UvPeer*>(async->data);
            self->mMailbox.drain(self->receive);
        });
        mAsync.data = this;
    }

    void post(const Message& message) override {
        if (mMailbox.put(message)) uv_async_send(&mAsync);
    }
    // Rounded up: its timers take whole milliseconds.
    void postIn(int64_t nanos, const Message& message) override {
        auto* timer = new Timer{{}, this, message};
        uv_timer_init(&mLoop, &timer->handle);
        timer->handle.data = timer;
        uv_timer_start(&timer->handle, fire, static_cast<uint64_t>((nanos + 999999) / 1000000), 0);
    }
    void run() override { uv_run(&mLoop, UV_RUN_DEFAULT); }
    void quit() override { uv_stop(&mLoop); }

  private:
    struct Timer {
        uv_timer_t handle;
        UvPeer* peer;
        Message message;
    };
    static void fire(uv_timer_t* handle) {
        auto* timer = static_cast<Timer*>(handle->data);
        timer->peer->receive(timer->message);
        uv_close(reinterpret_cast<uv_handle_t*>(handle),
                 [](uv_handle_t* closed) { delete static_cast<Timer*>(closed->data); });
    }

    uv_loop_t mLoop;
    uv_async_t mAsync;
    Mailbox mMailbox;
};

const Registration registration("uv-mailbox", make<UvPeer>);

}  // namespace
}  // namespace bench
