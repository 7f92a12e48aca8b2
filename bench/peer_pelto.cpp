// The phone service's own loop.
#include <cstring>

#include "bench/peer.h"
#include "looper/PeltoLooper.h"

namespace bench {
namespace {

using android::PeltoLooper;
using android::PeltoMessage;
using android::sp;

static_assert(sizeof(PeltoMessage) == sizeof(Message));

const PeltoMessage& asPelto(const Message& message) {
    return reinterpret_cast<const PeltoMessage&>(message);
}

class PeltoPeer : public Peer {
  public:
    using Peer::Peer;

    void post(const Message& message) override { mLooper->sendMessage(mHandler, asPelto(message)); }
    void postIn(int64_t nanos, const Message& message) override {
        mLooper->sendMessageDelayed(nanos, mHandler, asPelto(message));
    }
    void run() override {
        while (!mQuit) mLooper->pollOnce(-1, nullptr, nullptr, nullptr);
    }
    void quit() override { mQuit = true; }

  private:
    struct Handler : android::PeltoMessageHandler {
        explicit Handler(const Receiver& r) : receive(r) {}
        void handleMessage(const PeltoMessage& message) override {
            receive(reinterpret_cast<const Message&>(message));
        }
        const Receiver& receive;
    };

    const sp<PeltoLooper> mLooper = new PeltoLooper(false);
    const sp<android::PeltoMessageHandler> mHandler = new Handler(receive);
    bool mQuit = false;
};

const Registration registration("pelto", make<PeltoPeer>);

}  // namespace
}  // namespace bench
