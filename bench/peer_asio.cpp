#include <asio.hpp>

#include "bench/mailbox.h"

namespace bench {
namespace {

// asio::post with the message captured, the usual way: one queue entry per message.
class AsioPostPeer : public Peer {
  public:
    explicit AsioPostPeer(Receiver receiver) : Peer(std::move(receiver)) {}
    AsioPostPeer(Receiver receiver, int concurrencyHint)
        : Peer(std::move(receiver)), mContext(concurrencyHint) {}

    void post(const Message& message) override {
        asio::post(mContext, [this, message] { receive(message); });
    }
    void postIn(int64_t nanos, const Message& message) override {
        auto timer =
            std::make_shared<asio::steady_timer>(mContext, std::chrono::nanoseconds(nanos));
        timer->async_wait([this, timer, message](const asio::error_code&) { receive(message); });
    }
    void run() override { mContext.run(); }
    void quit() override { mContext.stop(); }

  private:
    asio::io_context mContext;
    const asio::executor_work_guard<asio::io_context::executor_type> mWork =
        asio::make_work_guard(mContext);
};

// Constructed with the hint that a single thread runs it: posts from that thread take no lock.
class AsioPostSinglePeer : public AsioPostPeer {
  public:
    explicit AsioPostSinglePeer(Receiver receiver) : AsioPostPeer(std::move(receiver), 1) {}
};

class AsioMailboxPeer : public Peer {
  public:
    using Peer::Peer;

    void post(const Message& message) override {
        if (mMailbox.put(message)) asio::post(mContext, [this] { mMailbox.drain(receive); });
    }
    void run() override { mContext.run(); }
    void quit() override { mContext.stop(); }

  private:
    asio::io_context mContext{1};
    const asio::executor_work_guard<asio::io_context::executor_type> mWork =
        asio::make_work_guard(mContext);
    Mailbox mMailbox;
};

const Registration post("asio-post", make<AsioPostPeer>);
const Registration postSingle("asio-post-single", make<AsioPostSinglePeer>);
const Registration mailbox("asio-mailbox", make<AsioMailboxPeer>);

}  // namespace
}  // namespace bench
