#include <glib.h>

#include "bench/mailbox.h"

namespace bench {
namespace {

class GlibPeer : public Peer {
  public:
    using Peer::Peer;
    ~GlibPeer() override {
        g_main_loop_unref(mLoop);
        g_main_context_unref(mContext);
    }
    void run() override { g_main_loop_run(mLoop); }
    void quit() override { g_main_loop_quit(mLoop); }

  protected:
    GMainContext* const mContext = g_main_context_new();

  private:
    GMainLoop* const mLoop = g_main_loop_new(mContext, FALSE);
};

// One idle source per message, as g_main_context_invoke() creates for a loop of another thread.
class GlibInvokePeer : public GlibPeer {
  public:
    using GlibPeer::GlibPeer;

    void post(const Message& message) override {
        GSource* source = g_idle_source_new();
        g_source_set_priority(source, G_PRIORITY_DEFAULT);
        g_source_set_callback(source, deliver, new Item{this, message}, destroy);
        g_source_attach(source, mContext);
        g_source_unref(source);
    }

  private:
    struct Item {
        GlibInvokePeer* peer;
        Message message;
    };
    static gboolean deliver(gpointer data) {
        auto* item = static_cast<Item*>(data);
        item->peer->receive(item->message);
        return G_SOURCE_REMOVE;
    }
    static void destroy(gpointer data) { delete static_cast<Item*>(data); }
};

// A custom source that drains a batch mailbox.
class GlibSourcePeer : public GlibPeer {
  public:
    explicit GlibSourcePeer(Receiver receiver) : GlibPeer(std::move(receiver)) {
        static GSourceFuncs functions = {nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};
        mSource = reinterpret_cast<Source*>(g_source_new(&functions, sizeof(Source)));
        mSource->peer = this;
        g_source_attach(&mSource->base, mContext);
    }

    void post(const Message& message) override {
        if (mMailbox.put(message)) g_source_set_ready_time(&mSource->base, 0);
    }

  private:
    struct Source {
        GSource base;
        GlibSourcePeer* peer;
    };
    static gboolean dispatch(GSource* source, GSourceFunc, gpointer) {
        g_source_set_ready_time(source, -1);
        auto* self = reinterpret_cast<Source*>(source)->peer;
        self->mMailbox.drain(self->receive);
        return G_SOURCE_CONTINUE;
    }

    Source* mSource;
    Mailbox mMailbox;
};

const Registration invoke("glib-invoke", make<GlibInvokePeer>);
const Registration source("glib-source", make<GlibSourcePeer>);

}  // namespace
}  // namespace bench
